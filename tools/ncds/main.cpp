// The `ncds` command-line tool: imports CSV files into project files, lists, shows, exports
// and deletes their datasets.

#include <unistd.h>

#include <iostream>

#include "tools/ncds/Cli.h"

int main(int argc, char** argv) {
  return ncds::tool::RunCli(argc, argv, std::cout, std::cerr, isatty(STDERR_FILENO) == 1);
}
