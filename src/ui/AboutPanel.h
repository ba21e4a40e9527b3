#pragma once

#include "ui/PlainWindow.h"

#include <QString>

#include <functional>
#include <utility>
#include <vector>

namespace skylet {

class LinkButton;
class TextLabel;

/// What the program is, its version, and a link to its maker. All texts stand in the middle, in both languages. Its
/// colours follow the desktop's.
class AboutPanel final : public PlainWindow {
    Q_OBJECT

  public:
    AboutPanel(const QString& version, std::function<void()> openBrimlake);

  protected:
    void changeEvent(QEvent* event) override;

  private:
    void applyColors();

    TextLabel* name_ = nullptr;
    TextLabel* tagline_ = nullptr;
    std::vector<TextLabel*> secondary_;
    std::vector<TextLabel*> tertiary_;
    LinkButton* link_ = nullptr;
};

} // namespace skylet
