#include "ui/DesktopWindows.h"

#include "BuildConstants.h"
#include "ui/Controls.h"
#include "ui/Fonts.h"
#include "ui/PlainWindow.h"
#include "ui/Strings.h"

#include <QShortcut>

#include <utility>

namespace skylet {

namespace {

/// Between its first and its last line the body is the same on every platform.
QString welcomeBody() {
    QStringList lines = L(QStringLiteral("welcome.body")).split(u'\n');
    lines.first() = desktopText(QStringLiteral("welcome.where"));
    lines.last() = desktopText(QStringLiteral("welcome.hidden"));
    return lines.join(u'\n');
}

/// Says where the status item is and what its colours mean, and offers to start the program at login. Only the button
/// has a consequence. In Hebrew the body and the check box run from right to left; everything else stays where it is.
class WelcomePanel final : public PlainWindow, public WelcomeWindow {
  public:
    WelcomePanel(bool loginBoxOn, std::function<void()> finishWelcome)
        : PlainWindow(L(QStringLiteral("Welcome to Skylet")), QSize(420, 400)),
          loginBox_(new CheckBox(L(QStringLiteral("Launch Skylet at login (recommended)")))) {
        setObjectName(QStringLiteral("welcomeWindow"));
        loginBox_->setObjectName(QStringLiteral("loginBox"));
        loginBox_->setFont(systemFont(13));
        loginBox_->setLayoutDirection(isHebrew() ? Qt::RightToLeft : Qt::LeftToRight);
        loginBox_->setChecked(loginBoxOn);
        auto* button = new QPushButton(L(QStringLiteral("Got it")));
        button->setObjectName(QStringLiteral("gotItButton"));
        button->setFont(systemFont(13));
        button->setDefault(true);
        // Queued, so that the callback may destroy the window: no code of the button runs at that moment.
        connect(button, &QPushButton::clicked, this, std::move(finishWelcome), Qt::QueuedConnection);
        // The button has no focus, so that a space bar does not press it that was meant for another window. As
        // shortcuts these keys come before the widgets, some of which take Return for themselves on some desktops.
        for (const auto key : {Qt::Key_Return, Qt::Key_Enter}) {
            connect(new QShortcut(QKeySequence(key), this), &QShortcut::activated, button, &QAbstractButton::click);
        }

        place(new IconView, {170, 300, 80, 80});
        place(new TextLabel(QStringLiteral("headline"), L(QStringLiteral("Skylet is now in your menu bar")),
                            systemFont(17, QFont::Bold)),
              {20, 262, 380, 28});
        place(new TextLabel(QStringLiteral("body"), welcomeBody(), systemFont(12.5), Qt::AlignLeft),
              {30, 105, 360, 150});
        place(loginBox_, {30, 66, 360, 22});
        place(button, {300, 18, 90, 32});
    }

    void bringToFront() override { PlainWindow::bringToFront(); }
    void close() override { QWidget::close(); }
    bool loginBoxIsOn() const override { return loginBox_->isChecked(); }

  private:
    QCheckBox* const loginBox_;
};

/// What the program is, its version, and a link to its maker. All texts stand in the middle, in both languages.
class AboutPanel final : public PlainWindow, public Window {
  public:
    explicit AboutPanel(std::function<void()> openBrimlake)
        : PlainWindow(L(QStringLiteral("About Skylet")), QSize(380, 450)) {
        setObjectName(QStringLiteral("aboutWindow"));
        static_assert(*build::version != 0, "the build always has a version");
        constexpr auto label = &SemanticColors::label;
        constexpr auto secondary = &SemanticColors::secondaryLabel;
        constexpr auto tertiary = &SemanticColors::tertiaryLabel;
        place(new IconView, {140, 330, 100, 100});
        add(QStringLiteral("name"), QStringLiteral("Skylet"), systemFont(22, QFont::Bold), label, {292, 30});
        add(QStringLiteral("version"), formatted(L(QStringLiteral("Version %@")), {QString::fromUtf8(build::version)}),
            systemFont(12), secondary, {272, 20});
        add(QStringLiteral("tagline"), L(QStringLiteral("about.tagline")), systemFont(13), label, {210, 50});
        add(QStringLiteral("details"), L(QStringLiteral("about.details")), systemFont(11.5), secondary, {132, 76});
        add(QStringLiteral("language"), desktopText(QStringLiteral("about.language")), systemFont(10.5), secondary,
            {88, 42});
        auto* link = new LinkButton(QStringLiteral("link"), L(QStringLiteral("Powered by Brimlake")),
                                    systemFont(13, QFont::DemiBold));
        link->setAccessibleDescription(QString::fromUtf8(build::webSiteName));
        connect(link, &QPushButton::clicked, this, std::move(openBrimlake), Qt::QueuedConnection);
        place(link, {90, 62, 200, 28});
        add(QStringLiteral("webSite"), QString::fromUtf8(build::webSiteName), systemFont(11), tertiary, {44, 20});
        add(QStringLiteral("copyright"), L(QString::fromUtf8(build::copyright)), systemFont(10), tertiary, {16, 20});
    }

    void bringToFront() override { PlainWindow::bringToFront(); }
    void close() override { QWidget::close(); }

  private:
    /// How high above the window's bottom edge a text's frame begins, and its height.
    struct Rows {
        int y;
        int height;
    };

    void add(const QString& objectName, const QString& text, const QFont& font, TextLabel::ColorRole color, Rows rows) {
        place(new TextLabel(objectName, text, font, Qt::AlignHCenter, color), {30, rows.y, 320, rows.height});
    }
};

} // namespace

void DesktopWindows::awaitScreenReaders() {
    qputenv("QT_LINUX_ACCESSIBILITY_ALWAYS_ON", "1");
}

std::unique_ptr<WelcomeWindow> DesktopWindows::makeWelcomeWindow(bool loginBoxOn, std::function<void()> finishWelcome) {
    return std::make_unique<WelcomePanel>(loginBoxOn, std::move(finishWelcome));
}

std::unique_ptr<Window> DesktopWindows::makeAboutWindow(std::function<void()> openBrimlake) {
    return std::make_unique<AboutPanel>(std::move(openBrimlake));
}

} // namespace skylet
