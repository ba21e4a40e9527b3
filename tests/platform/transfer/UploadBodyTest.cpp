#include "platform/transfer/UploadBody.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <span>

namespace skylet {
namespace {

constexpr std::size_t size = 20'000'000;

/// Of this process, in pages (proc_pid_statm(5)).
std::int64_t residentPages() {
    std::ifstream file("/proc/self/statm");
    std::int64_t total = 0;
    std::int64_t resident = 0;
    file >> total >> resident;
    return resident;
}

TEST(UploadBodyTest, IsAsLongAsAskedForAndAllZero) {
    const auto body = zeroBody(size);
    ASSERT_EQ(body.size, size);
    const std::span bytes(body.bytes.get(), body.size);
    EXPECT_TRUE(std::all_of(bytes.begin(), bytes.end(), [](std::byte value) { return value == std::byte{0}; }));
}

TEST(UploadBodyTest, OccupiesNoMemoryHoweverOftenOneIsMadeAndRead) {
    const auto readWhole = [] {
        const auto body = zeroBody(size);
        const std::span bytes(body.bytes.get(), body.size);
        return std::count(bytes.begin(), bytes.end(), std::byte{0});
    };
    ASSERT_EQ(readWhole(), static_cast<std::ptrdiff_t>(size));
    const auto before = residentPages();
    for (int i = 0; i < 5; ++i) {
        const auto body = zeroBody(size);
        const std::span bytes(body.bytes.get(), body.size);
        ASSERT_EQ(std::count(bytes.begin(), bytes.end(), std::byte{0}), static_cast<std::ptrdiff_t>(size));
        EXPECT_LT(residentPages() - before, 250) << "of 4883 pages";
    }
}

TEST(UploadBodyTest, LivesAsLongAsTheLastCopy) {
    UploadBody copy;
    {
        const auto body = zeroBody(size);
        copy = body;
    }
    EXPECT_EQ(copy.bytes.get()[size - 1], std::byte{0});
}

TEST(UploadBodyTest, MayBeEmpty) {
    EXPECT_EQ(zeroBody(0).size, 0U);
}

} // namespace
} // namespace skylet
