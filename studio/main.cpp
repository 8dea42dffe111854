#include <unistd.h>

#include <iostream>

#include "studio/commands/cli.h"
#include "studio/commands/progressline.h"

int main(int argc, char** argv) {
  studio::ProgressLine::allowed = isatty(STDERR_FILENO) != 0;
  return studio::RunCommandLine(argc, argv, std::cout, std::cerr);
}
