// Every test program runs under a root of its own.
#include <gtest/gtest.h>

#include <cstdlib>

#include "testing/testRoot.h"

int main(int argc, char **argv) {
  setenv("CORVANE_ROOT", testing_support::ProcessRoot().Path().c_str(), 1);
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
