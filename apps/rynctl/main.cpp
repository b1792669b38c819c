// rynctl: sends observations to rynd, receives its events, follows its trace, prints its catalogue.
#include <iostream>

#include "rynctl/rynctl.h"

int main(int argc, char **argv) {
  return rynctl::Main(argc, argv, std::cout, std::cerr);
}
