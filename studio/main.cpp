#include <iostream>

#include "studio/commands/cli.h"

int main(int argc, char** argv) { return studio::RunCommandLine(argc, argv, std::cout, std::cerr); }
