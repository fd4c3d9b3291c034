// Test entry: gives the run a private registry (Linux) before any test starts.
#include <gtest/gtest.h>

#include "TestEnvironment.h"

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  vctest::PrepareProcess();
  return RUN_ALL_TESTS();
}
