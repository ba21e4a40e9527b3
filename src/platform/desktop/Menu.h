#pragma once

#include <QObject>
#include <QString>

#include <functional>
#include <memory>
#include <vector>

namespace skylet {

/// One entry of the menu as the program thinks of it. What shows it follows `changed`.
class MenuItem : public QObject {
    Q_OBJECT

  public:
    /// `keyEquivalent`: one letter, pressed with the menu's command modifier (Ctrl), or empty.
    MenuItem(QString title, std::function<void()> action, QString keyEquivalent);
    static std::shared_ptr<MenuItem> separator();

    const QString& title() const { return title_; }
    void setTitle(const QString& title);
    const QString& keyEquivalent() const { return keyEquivalent_; }
    bool isSeparator() const { return separator_; }
    bool isEnabled() const { return enabled_; }
    void setEnabled(bool enabled);
    /// An item that was ever given a check mark is a check item for good, so that hosts lay it out as one.
    bool isCheckable() const { return checkable_; }
    bool isChecked() const { return checked_; }
    void setChecked(bool checked);
    /// Side length in logical pixels of the application's icon shown beside the title; 0: no image.
    int applicationIconSize() const { return applicationIconSize_; }
    /// Before the menu is given to a status item.
    void setApplicationIconSize(int size) { applicationIconSize_ = size; }
    /// Runs the action, enabled or not. Hosts check `isEnabled` before.
    void trigger() const;

  Q_SIGNALS:
    void changed();

  private:
    QString title_;
    std::function<void()> action_;
    QString keyEquivalent_;
    bool separator_ = false;
    bool enabled_ = true;
    bool checkable_ = false;
    bool checked_ = false;
    int applicationIconSize_ = 0;
};

/// The entries in order. Fixed once it is given to a status item; only the entries' properties change after that.
using Menu = std::vector<std::shared_ptr<MenuItem>>;

/// Some title has letters that run from right to left, so the whole menu is laid out that way.
bool isRightToLeft(const Menu& menu);

} // namespace skylet
