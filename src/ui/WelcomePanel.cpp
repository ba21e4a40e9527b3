#include "ui/WelcomePanel.h"

#include "ui/CheckBox.h"
#include "ui/Fonts.h"
#include "ui/Frames.h"
#include "ui/IconView.h"
#include "ui/Strings.h"
#include "ui/TextLabel.h"

#include <QPushButton>

#include <utility>

namespace skylet {

namespace {

constexpr QSize welcomeSize{420, 400};

} // namespace

WelcomePanel::WelcomePanel(bool loginBoxOn, std::function<void()> finishWelcome)
    : PlainWindow(L(QStringLiteral("Welcome to Skylet")), welcomeSize),
      loginBox_(new CheckBox(L(QStringLiteral("Launch Skylet at login (recommended)")))) {
    setObjectName(QStringLiteral("welcomeWindow"));

    auto* icon = new IconView(QStringLiteral("icon"));
    auto* headline = new TextLabel(QStringLiteral("headline"), L(QStringLiteral("Skylet is now in your menu bar")),
                                   systemFont(17, QFont::Bold), Qt::AlignHCenter);
    auto* body =
        new TextLabel(QStringLiteral("body"), L(QStringLiteral("welcome.body")), systemFont(12.5), Qt::AlignLeft);
    loginBox_->setObjectName(QStringLiteral("loginBox"));
    loginBox_->setFont(systemFont(13));
    loginBox_->setLayoutDirection(isHebrew() ? Qt::RightToLeft : Qt::LeftToRight);
    loginBox_->setChecked(loginBoxOn);
    auto* button = new QPushButton(L(QStringLiteral("Got it")));
    button->setObjectName(QStringLiteral("gotItButton"));
    button->setFont(systemFont(13));
    button->setDefault(true);
    // Queued, so that the window may be destroyed from inside: nothing of the button is under way then.
    connect(button, &QPushButton::clicked, this, std::move(finishWelcome), Qt::QueuedConnection);
    setReturnButton(button);

    Frames frames(welcomeSize);
    frames.add(icon, {170, 300, 80, 80});
    frames.add(headline, {20, 262, 380, 28});
    frames.add(body, {30, 105, 360, 150});
    frames.add(loginBox_, {30, 66, 360, 22});
    frames.add(button, {300, 18, 90, 32});
    setFrames(frames);
    button->setFocus();
}

bool WelcomePanel::loginBoxIsOn() const {
    return loginBox_->isChecked();
}

} // namespace skylet
