#include "fuzz/Fuzz.h"
#include "support/RuntimeFolder.h"

#include <QApplication>
#include <QDir>
#include <QFile>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <random>
#include <span>
#include <vector>

namespace {

using Input = std::vector<std::uint8_t>;

constexpr std::size_t roundsForEach = 100;
constexpr std::size_t mostChanges = 8;

std::vector<Input> readCorpus(const QString& folder) {
    std::vector<Input> inputs = {{}};
    for (const QFileInfo& entry : QDir(folder).entryInfoList(QDir::Files, QDir::Name)) {
        QFile file(entry.filePath());
        if (file.open(QIODevice::ReadOnly)) {
            const QByteArray bytes = file.readAll();
            inputs.emplace_back(bytes.begin(), bytes.end());
        }
    }
    return inputs;
}

/// One byte another, one more, one less, or a piece of another input in its place.
void change(Input& input, const std::vector<Input>& corpus, std::mt19937_64& random) {
    const auto place = [&random](const Input& of) {
        return static_cast<Input::difference_type>(random() % (of.size() + 1));
    };
    const auto at = input.begin() + place(input);
    switch (random() % 4) {
    case 0:
        if (at != input.end()) {
            *at = static_cast<std::uint8_t>(random());
        }
        break;
    case 1:
        input.insert(at, static_cast<std::uint8_t>(random()));
        break;
    case 2:
        input.erase(at, at + std::min<Input::difference_type>(input.end() - at, 1 + place(input) / 4));
        break;
    default:
        const Input& other = corpus[random() % corpus.size()];
        const auto from = other.begin() + place(other);
        input.erase(at, input.end());
        input.insert(input.end(), from, other.end());
        break;
    }
}

} // namespace

/// fuzz_replay TARGET FOLDER: runs the target with each file of its corpus and with random changes of them. Without
/// libFuzzer, so with any compiler.
int main(int argc, char** argv) {
    const skylet::test::RuntimeFolder runtimeFolder;
    const QApplication application(argc, argv);
    if (argc != 3) {
        return 2;
    }
    const auto run = skylet::test::FuzzTarget::find(argv[1]);
    const std::vector<Input> corpus = readCorpus(QString::fromUtf8(argv[2]));
    bool hasSeed = false;
    std::uint64_t seed = qEnvironmentVariable("SKYLET_FUZZ_SEED").toULongLong(&hasSeed);
    seed = hasSeed ? seed : std::random_device()();
    std::printf("SKYLET_FUZZ_SEED=%llu\n", static_cast<unsigned long long>(seed));
    std::fflush(stdout);
    std::mt19937_64 random(seed);
    for (const Input& original : corpus) {
        Input input = original;
        run(skylet::test::FuzzInput(input));
        for (std::size_t round = 0; round < roundsForEach; ++round) {
            input = original;
            for (std::size_t changes = 1 + random() % mostChanges; changes > 0; --changes) {
                change(input, corpus, random);
            }
            run(skylet::test::FuzzInput(input));
        }
    }
    std::printf("%zu inputs\n", corpus.size() * (1 + roundsForEach));
}
