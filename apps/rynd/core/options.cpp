#include "core/options.h"

#include <getopt.h>

#include <cstdio>

namespace rynd {
namespace {

constexpr option kLongOptions[] = {
    {"enableryns", no_argument, nullptr, 'e'},
    {"help", no_argument, nullptr, 'h'},
    {"loglevel", required_argument, nullptr, 'l'},
    {"test", no_argument, nullptr, 't'},
    {nullptr, 0, nullptr, 0},
};

void PrintUsage(const char *program) {
  printf("Usage: %s [options]\n", program);
  printf("valid options are:\n");
  printf("\t--help|-h - display this help\n");
}

}  // namespace

Options ParseOptions(int argc, char **argv) {
  Options options;
  if (argc <= 1) return options;
  for (int letter; (letter = getopt_long(argc, argv, "ehl:t", kLongOptions, nullptr)) != -1;) {
    if (letter == 'e') {
      options.enableRyns = true;
      continue;
    }
    PrintUsage(argv[0]);
    options.usageShown = true;
    break;
  }
  return options;
}

}  // namespace rynd
