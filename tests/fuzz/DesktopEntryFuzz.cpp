#include "fuzz/Fuzz.h"
#include "platform/linux/system/AutostartLaunchAgent.h"

#include <QLibrary>

namespace skylet::test {
namespace {

/// What of GLib reads a desktop entry. Found at run time, since Debian has the library wherever Qt is, but not its
/// headers.
class GLib {
  public:
    GLib() {
        if (!library_.load()) {
            skip("there is no libglib-2.0.so.0");
        }
    }

    /// The words of the entry's command line, with its field codes.
    QByteArrayList commandLine(const QByteArray& entry) const {
        void* const file = newFile_();
        require(load_(file, entry.constData(), static_cast<std::size_t>(entry.size()), 0, nullptr) != 0,
                "GLib reads the file");
        char* const line = getString_(file, "Desktop Entry", "Exec", nullptr);
        require(line != nullptr, "GLib finds the command line");
        int count = 0;
        char** words = nullptr;
        require(parseWords_(line, &count, &words, nullptr) != 0, "GLib understands the command line");
        QByteArrayList found;
        for (int i = 0; i < count; ++i) {
            found.append(words[i]);
        }
        freeWords_(words);
        free_(line);
        freeFile_(file);
        return found;
    }

  private:
    template <typename Function>
    Function* find(const char* name) {
        const auto function = reinterpret_cast<Function*>(library_.resolve(name));
        require(function != nullptr, name);
        return function;
    }

    QLibrary library_{QStringLiteral("glib-2.0"), 0};
    void* (*newFile_)() = find<void*()>("g_key_file_new");
    int (*load_)(void*, const char*, std::size_t, int,
                 void*) = find<int(void*, const char*, std::size_t, int, void*)>("g_key_file_load_from_data");
    char* (*getString_)(void*, const char*, const char*,
                        void*) = find<char*(void*, const char*, const char*, void*)>("g_key_file_get_string");
    int (*parseWords_)(const char*, int*, char***,
                       void*) = find<int(const char*, int*, char***, void*)>("g_shell_parse_argv");
    void (*freeWords_)(char**) = find<void(char**)>("g_strfreev");
    void (*free_)(void*) = find<void(void*)>("g_free");
    void (*freeFile_)(void*) = find<void(void*)>("g_key_file_unref");
};

void quotePath(FuzzInput input) {
    static const GLib glib;
    const QString path = u'/' + QString::fromUtf8(QByteArray(input.rest().constData()));
    const QByteArrayList words = glib.commandLine(AutostartLaunchAgent::desktopEntry(path));
    require(words.size() == 1 || (words.size() == 4 && words.mid(0, 3) == QByteArrayList{"nice", "-n", "0"}),
            "the program is one word, or the one argument of nice");
    QByteArray word = words.constLast();
    require(!QByteArray(word).replace("%%", "").contains('%'), "there are no field codes");
    require(word.replace("%%", "%") == path.toUtf8(), "it is the path");
}

const FuzzTarget desktopEntryTarget("desktopentry", quotePath);

} // namespace
} // namespace skylet::test
