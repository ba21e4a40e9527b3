#include "fuzz/Fuzz.h"
#include "support/RuntimeFolder.h"

#include <QApplication>

#include <cstddef>
#include <cstdint>
#include <span>

namespace {

skylet::test::FuzzTarget::Run run = nullptr;

} // namespace

// What the sanitizer asks: fontconfig keeps what it reads.
extern "C" const char* __lsan_default_suppressions(); // NOLINT(bugprone-reserved-identifier)
const char* __lsan_default_suppressions() {           // NOLINT(bugprone-reserved-identifier)
    return "leak:libfontconfig\n";
}

// What libFuzzer calls.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int LLVMFuzzerInitialize(int* argc, char*** argv) {
    static const skylet::test::RuntimeFolder runtimeFolder;
    static const QApplication application(*argc, *argv);
    run = skylet::test::FuzzTarget::find(qgetenv("SKYLET_FUZZ_TARGET").toStdString());
    return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    run(skylet::test::FuzzInput(std::span(data, size)));
    return 0;
}
