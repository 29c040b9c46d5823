#include "driver/nalveo.h"
#include "driver/program.h"

int main(int argc, char **argv) { return nalveo::runprogram(argc, argv, nalveo::nalveomain); }
