#include "ui/AboutPanel.h"

#include "BuildConstants.h"
#include "ui/Fonts.h"
#include "ui/Frames.h"
#include "ui/IconView.h"
#include "ui/LinkButton.h"
#include "ui/SemanticColors.h"
#include "ui/Strings.h"
#include "ui/TextLabel.h"

#include <QEvent>

#include <utility>

namespace skylet {

namespace {

constexpr QSize aboutSize{380, 450};

TextLabel* centered(const QString& objectName, const QString& text, const QFont& font) {
    return new TextLabel(objectName, text, font, Qt::AlignHCenter);
}

} // namespace

AboutPanel::AboutPanel(const QString& version, std::function<void()> openBrimlake)
    : PlainWindow(L(QStringLiteral("About Skylet")), aboutSize) {
    setObjectName(QStringLiteral("aboutWindow"));
    auto* icon = new IconView(QStringLiteral("icon"));
    name_ = centered(QStringLiteral("name"), QStringLiteral("Skylet"), systemFont(22, QFont::Bold));
    auto* versionLine =
        centered(QStringLiteral("version"), formatted(L(QStringLiteral("Version %@")), {version}), systemFont(12));
    tagline_ = centered(QStringLiteral("tagline"), L(QStringLiteral("about.tagline")), systemFont(13));
    auto* details = centered(QStringLiteral("details"), L(QStringLiteral("about.details")), systemFont(11.5));
    auto* language = centered(QStringLiteral("language"), L(QStringLiteral("about.language")), systemFont(10.5));
    link_ = new LinkButton(QStringLiteral("link"), L(QStringLiteral("Powered by Brimlake")),
                           systemFont(13, QFont::DemiBold));
    connect(link_, &QPushButton::clicked, this, std::move(openBrimlake), Qt::QueuedConnection);
    auto* webSite = centered(QStringLiteral("webSite"), QString::fromUtf8(build::webSiteName), systemFont(11));
    auto* copyright = centered(QStringLiteral("copyright"), L(QString::fromUtf8(build::copyright)), systemFont(10));
    secondary_ = {versionLine, details, language};
    tertiary_ = {webSite, copyright};

    Frames frames(aboutSize);
    frames.add(icon, {140, 330, 100, 100});
    frames.add(name_, {30, 292, 320, 30});
    frames.add(versionLine, {30, 272, 320, 20});
    frames.add(tagline_, {30, 210, 320, 50});
    frames.add(details, {30, 132, 320, 76});
    frames.add(language, {30, 88, 320, 42});
    frames.add(link_, {90, 62, 200, 28});
    frames.add(webSite, {30, 44, 320, 20});
    frames.add(copyright, {30, 16, 320, 20});
    setFrames(frames);
    applyColors();
}

void AboutPanel::changeEvent(QEvent* event) {
    PlainWindow::changeEvent(event);
    if (event->type() == QEvent::PaletteChange && link_ != nullptr) {
        applyColors();
    }
}

void AboutPanel::applyColors() {
    const SemanticColors colors = semanticColors(palette());
    name_->setTextColor(colors.label);
    tagline_->setTextColor(colors.label);
    for (TextLabel* label : secondary_) {
        label->setTextColor(colors.secondaryLabel);
    }
    for (TextLabel* label : tertiary_) {
        label->setTextColor(colors.tertiaryLabel);
    }
    link_->setTextColor(colors.controlAccent);
}

} // namespace skylet
