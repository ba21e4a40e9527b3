#include "platform/linux/system/FileDiagnosticLog.h"

#include "platform/linux/system/FileDescriptor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace skylet {

namespace {

bool isOwnPlainFile(const struct stat& file) {
    return S_ISREG(file.st_mode) && file.st_uid == geteuid() && file.st_nlink == 1;
}

bool writeText(const FileDescriptor& file, const QByteArray& text) {
    return ::write(file.get(), text.data(), static_cast<std::size_t>(text.size())) == text.size();
}

/// Puts a file with `text` in the place of `path` in one step. With RENAME_NOREPLACE in `flags` whatever is there
/// stays.
void writeWholeFile(const std::string& path, const QByteArray& text, unsigned flags) {
    std::string temporaryPath = path + ".XXXXXX";
    const FileDescriptor file(mkostemp(temporaryPath.data(), O_CLOEXEC));
    if (!file.isValid()) {
        return;
    }
    if (!writeText(file, text) || renameat2(AT_FDCWD, temporaryPath.c_str(), AT_FDCWD, path.c_str(), flags) != 0) {
        unlink(temporaryPath.c_str());
    }
}

} // namespace

FileDiagnosticLog::FileDiagnosticLog(std::string path) : path_(std::move(path)) {}

void FileDiagnosticLog::append(const QString& line) {
    const QByteArray text = line.toUtf8();
    // O_NONBLOCK: a pipe without a reader is refused at once instead of waited for.
    const FileDescriptor file(
        open(path_.c_str(), O_WRONLY | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status {};
    if (file.isValid()) {
        if (fstat(file.get(), &status) == 0 && isOwnPlainFile(status)) {
            writeText(file, text);
        }
    } else if (errno == ENOENT) {
        writeWholeFile(path_, text, RENAME_NOREPLACE);
    } else if (lstat(path_.c_str(), &status) == 0 && isOwnPlainFile(status)) {
        writeWholeFile(path_, text, 0);
    }
}

} // namespace skylet
