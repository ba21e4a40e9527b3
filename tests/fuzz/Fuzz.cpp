#include "fuzz/Fuzz.h"

#include <QtGlobal>

#include <cstdio>
#include <cstdlib>

namespace skylet::test {

std::map<std::string, FuzzTarget::Run>& FuzzTarget::all() {
    static std::map<std::string, Run> targets;
    return targets;
}

FuzzTarget::Run FuzzTarget::find(const std::string& name) {
    const auto found = all().find(name);
    if (found != all().end()) {
        return found->second;
    }
    std::fprintf(stderr, "no target \"%s\"; there are:", name.c_str());
    for (const auto& target : all()) {
        std::fprintf(stderr, " %s", target.first.c_str());
    }
    std::fputc('\n', stderr);
    std::exit(2);
}

void require(bool holds, const char* what) {
    if (!holds) {
        qFatal("broken: %s", what);
    }
}

void skip(const char* reason) {
    std::printf("Skipped: %s\n", reason);
    std::fflush(stdout);
    std::_Exit(77);
}

} // namespace skylet::test
