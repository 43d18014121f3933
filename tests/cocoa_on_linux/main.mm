#include "Environment.h"

namespace {

class FreshMachine : public testing::EmptyTestEventListener {
  void OnTestStart(const testing::TestInfo&) override { doubles::reset(); }
};

}  // namespace

int main(int argc, char** argv) {
  return runTests(argc, argv, [] {
    testing::UnitTest::GetInstance()->listeners().Append(new FreshMachine);
    return RUN_ALL_TESTS();
  });
}
