#include "platform/linux/transfer/CurlMulti.h"

#include "platform/linux/transfer/CurlOptions.h"
#include "support/EventLoop.h"

#include <QTemporaryFile>

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <thread>

namespace skylet {
namespace {

using namespace std::chrono_literals;

constexpr auto longTime = 300ms;

/// Of the whole process: this is its only thread that does anything.
std::chrono::nanoseconds processorTime() {
    return std::chrono::nanoseconds(1s) * std::clock() / CLOCKS_PER_SEC;
}

class CurlMultiTest : public testing::Test {
  protected:
    /// A transfer in the midst of which libcurl is at `work`.
    void transfer(void (*work)()) {
        QTemporaryFile file;
        ASSERT_TRUE(file.open());
        file.write("x");
        file.flush();
        initializeCurl();
        const CurlEasy easy(curl_easy_init());
        const QByteArray url = "file://" + file.fileName().toUtf8();
        setCurlOption(easy, CURLOPT_URL, url.constData());
        setCurlOption(easy, CURLOPT_WRITEDATA, &work);
        setCurlOption(easy, CURLOPT_WRITEFUNCTION, &CurlMultiTest::received);
        multi_.add(easy.get());
        EXPECT_TRUE(test::waitUntil([this] { return done_; }));
    }

    static std::size_t received(const char* /*data*/, std::size_t size, std::size_t count, void* work) {
        (*static_cast<void (**)()>(work))();
        return size * count;
    }

    bool done_ = false;
    CurlMulti multi_{[this](CURL* /*handle*/, CURLcode result) { done_ = result == CURLE_OK; }};
};

TEST_F(CurlMultiTest, KeepingTheProcessorBusyIsEffort) {
    transfer([] {
        const auto began = processorTime();
        while (processorTime() - began < longTime) {
        }
    });
    EXPECT_GE(multi_.effort(), longTime * 9 / 10);
}

TEST_F(CurlMultiTest, WaitingForTheProcessorIsNone) {
    transfer([] { std::this_thread::sleep_for(longTime); });
    EXPECT_GT(multi_.effort(), 0ms);
    EXPECT_LT(multi_.effort(), longTime / 3);
}

} // namespace
} // namespace skylet
