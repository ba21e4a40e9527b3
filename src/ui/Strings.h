#pragma once

#include <QHash>
#include <QString>
#include <QStringList>

#include <functional>
#include <mutex>
#include <utility>
#include <vector>

namespace skylet {

/// The texts in the language of the user: English, or Hebrew when the first preferred language begins with "he".
/// English sentences are their own keys; four long texts have dotted keys. Knows nothing of layout direction.
class Strings {
  public:
    /// Rows of (key, text). Keys are unique: a duplicate stops the program when the table is built.
    using Rows = std::vector<std::pair<QString, QString>>;
    using RowSource = std::function<Rows()>;

    /// `preferredLanguages`: language tags such as "he-IL", the most preferred first; an empty list means English.
    explicit Strings(const QStringList& preferredLanguages, RowSource hebrew = hebrewRows,
                     RowSource english = englishRows);

    bool isHebrew() const { return isHebrew_; }
    /// The text to show for `key`: Hebrew if in force, else English, else the key itself. Exact match only. The tables
    /// are built with the first look-up that reaches them.
    QString text(const QString& key) const;

    /// 52 rows.
    static Rows hebrewRows();
    /// 4 rows, those with dotted keys.
    static Rows englishRows();

  private:
    using Table = QHash<QString, QString>;
    /// Built with the first use, once, whichever thread that is on.
    struct LazyTable {
        RowSource rows;
        std::once_flag once;
        Table table;
    };
    static const Table& built(LazyTable& lazy);

    const bool isHebrew_;
    mutable LazyTable hebrew_;
    mutable LazyTable english_;
};

/// The text to show for `key` in the user's language, which is decided once per process.
QString L(const QString& key);

/// Whether the user reads Hebrew.
bool isHebrew();

/// Replaces "%d" and "%@" in `form`, from left to right, by `arguments`. What an argument holds is not looked at again.
QString formatted(const QString& form, const QStringList& arguments);

/// `value` with `decimals` (0 to 6) digits after the point, as C's "%.*f" writes it, whatever the user's locale.
QString fixed(double value, int decimals);

} // namespace skylet
