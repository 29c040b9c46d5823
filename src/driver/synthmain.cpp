#include "driver/program.h"
#include "driver/synth.h"

int main(int argc, char **argv) { return nalveo::runprogram(argc, argv, nalveo::synthmain); }
