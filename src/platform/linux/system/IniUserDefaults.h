#pragma once

#include "platform/system/UserDefaults.h"

namespace skylet {

/// The choices as text in the section [General] of an INI file: true, false, 1 or 0 in any case, quoted or not; any
/// other text is not a Bool. All other lines, whatever they are, stay as they are. Something that cannot be read counts
/// as empty and stays untouched until something is stored; it is then kept under its name with ".corrupt" appended.
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
