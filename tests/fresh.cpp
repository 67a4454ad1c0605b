// Every test begins with the library as a program finds it, whatever ran before in its process.
#include "tests/fresh.h"

#include <gtest/gtest.h>

namespace kx {
namespace {

class Fresh : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo&) override { fresh(); }
};

[[maybe_unused]] const bool listening = [] {
    testing::UnitTest::GetInstance()->listeners().Append(std::make_unique<Fresh>().release());
    return true;
}();

} // namespace
} // namespace kx
