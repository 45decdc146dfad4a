#include "archive/command_line.h"

int main(int argc, char** argv) {
  return RunCommandLine(argc, argv);
}
