#include "driver/nalveo.h"

int main(int argc, char **argv) { return nalveomain(argc, argv); }
