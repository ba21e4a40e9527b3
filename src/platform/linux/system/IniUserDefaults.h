#pragma once

#include "platform/system/UserDefaults.h"

namespace skylet {

/// The choices as text in an INI file, `key=true` or `key=false`; any other text is not a Bool. A file that is no such
/// text, or no file at all, counts as empty and stays untouched until something is stored; it is then kept under its
/// name with ".corrupt" appended.
class IniUserDefaults : public UserDefaults {
  public:
    /// The file need not exist, nor its folder.
    explicit IniUserDefaults(QString path);

    /// `$XDG_CONFIG_HOME/skylet/skylet.ini`.
    static QString defaultPath();

    std::optional<bool> boolForKey(const QString& key) const override;
    void setBool(bool value, const QString& key) override;

  private:
    QString path_;
};

} // namespace skylet
