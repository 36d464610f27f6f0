#include "Sidebar.h"

#include "AppModel.h"
#include "ImagePipeline.h"
#include "RiskCard.h"
#include "Theme.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

namespace {

// A check box drawn as a switch: a rounded track with its knob, accent-coloured when on, and a ring
// around it while it has the keyboard's focus.
QCheckBox* switchBox() {
    auto* box = new QCheckBox;
    box->setFocusPolicy(Qt::StrongFocus);
    box->setStyleSheet(
        QStringLiteral("QCheckBox::indicator { width: 30px; height: 16px; border: 2px solid transparent; "
                       "border-radius: 10px;"
                       " image: url(:/icons/switch-off.svg); }"
                       "QCheckBox::indicator:checked { image: url(:/icons/switch-on.svg); }"
                       "QCheckBox::indicator:disabled { image: url(:/icons/switch-off-disabled.svg); }"
                       "QCheckBox::indicator:checked:disabled { image: url(:/icons/switch-on-disabled.svg); }"
                       "QCheckBox:focus::indicator { border-color: #FFFFFF; }"));
    return box;
}

} // namespace

Sidebar::Sidebar(AppModel& model) {
    auto* content = new QWidget;
    auto* layout = new QVBoxLayout(content);
    layout->setContentsMargins(16, 16, 16, 16);
    layout->setSpacing(8);

    auto* brand = new QHBoxLayout;
    brand->addWidget(Theme::iconLabel(
        Theme::icon(QStringLiteral("quorvel-shield"), QStringLiteral("checkmark-shield")), 31));
    auto* names = new QVBoxLayout;
    auto* appName = Theme::label(Theme::sized(15, QFont::Bold));
    appName->setText(QStringLiteral("Quorvel"));
    names->addWidget(appName);
    subtitle_ = Theme::secondaryCaption();
    names->addWidget(subtitle_);
    brand->addLayout(names, 1);
    layout->addLayout(brand);

    countryBlock_ = new QWidget;
    auto* country = new QVBoxLayout(countryBlock_);
    country->setContentsMargins(0, 4, 0, 4);
    auto* nameRow = new QHBoxLayout;
    nameRow->addWidget(
        Theme::iconLabel(Theme::icon(QStringLiteral("applications-internet"), QStringLiteral("globe")), 16));
    countryName_ = Theme::label(Theme::sized(14, QFont::DemiBold));
    nameRow->addWidget(countryName_, 1);
    country->addLayout(nameRow);
    countryEvidence_ = Theme::secondaryCaption();
    country->addWidget(countryEvidence_);
    countryProfile_ = Theme::label(Theme::caption());
    QPalette accentText = countryProfile_->palette();
    accentText.setColor(QPalette::WindowText, Theme::accent);
    countryProfile_->setPalette(accentText);
    country->addWidget(countryProfile_);
    heuristicZones_ = Theme::secondaryCaption();
    country->addWidget(heuristicZones_);
    country->addWidget(Theme::divider());
    layout->addWidget(countryBlock_);

    auto* languageRow = new QHBoxLayout;
    languageRow->addWidget(Theme::iconLabel(
        Theme::icon(QStringLiteral("preferences-desktop-locale"), QStringLiteral("globe")), 14));
    languagePicker_ = new QComboBox;
    languagePicker_->setFixedWidth(125);
    languagePicker_->setFont(Theme::caption());
    for (AppLanguage language : AppLanguages::allCases()) {
        languagePicker_->addItem(AppLanguages::displayName(language), AppLanguages::rawValue(language));
    }
    connect(languagePicker_, &QComboBox::activated, this, [&model](int index) {
        model.setLanguage(AppLanguages::allCases()[static_cast<std::size_t>(index)]);
    });
    languageRow->addWidget(languagePicker_);
    languageRow->addStretch();
    layout->addLayout(languageRow);

    alwaysHideTitle_ = Theme::sectionTitle();
    layout->addWidget(alwaysHideTitle_);
    for (QLabel*& row : requiredRows_) {
        auto* line = new QHBoxLayout;
        line->addWidget(Theme::iconLabel(
            Theme::icon(QStringLiteral("quorvel-check"), QStringLiteral("checkmark-circle")), 13));
        row = Theme::label();
        line->addWidget(row, 1);
        layout->addLayout(line);
    }
    machineReadableHint_ = Theme::secondaryCaption();
    layout->addWidget(machineReadableHint_);

    additionalTitle_ = Theme::sectionTitle();
    layout->addWidget(additionalTitle_);
    for (int i = 0; i < 3; ++i) {
        auto* line = new QHBoxLayout;
        optionLabels_[i] = Theme::label();
        line->addWidget(optionLabels_[i], 1);
        optionSwitches_[i] = switchBox();
        line->addWidget(optionSwitches_[i]);
        layout->addLayout(line);
        connect(optionSwitches_[i], &QCheckBox::toggled, this, [&model, i](bool on) {
            RedactionPolicy policy = model.policy();
            (i == 0 ? policy.hideFace : i == 1 ? policy.hideIssueDate : policy.hideExpiryDate) = on;
            model.setPolicy(policy);
        });
    }
    additionalHint_ = Theme::secondaryCaption();
    layout->addWidget(additionalHint_);

    markTitle_ = Theme::sectionTitle();
    layout->addWidget(markTitle_);
    auto* markLine = new QHBoxLayout;
    markLabel_ = Theme::label();
    markLine->addWidget(markLabel_, 1);
    markSwitch_ = switchBox();
    markLine->addWidget(markSwitch_);
    layout->addLayout(markLine);
    connect(markSwitch_, &QCheckBox::toggled, this, [&model](bool on) { model.setMarkCopy(on); });
    purpose_ = new QLineEdit;
    purpose_->setMaxLength(static_cast<int>(ImagePipeline::longestPurpose));
    purpose_->setClearButtonEnabled(true);
    layout->addWidget(purpose_);
    // The preview follows the typing once it pauses, not every key.
    auto* typing = new QTimer(this);
    typing->setSingleShot(true);
    typing->setInterval(350);
    connect(purpose_, &QLineEdit::textEdited, typing, qOverload<>(&QTimer::start));
    connect(typing, &QTimer::timeout, this, [this, &model] { model.setPurpose(purpose_->text()); });
    markHint_ = Theme::secondaryCaption();
    layout->addWidget(markHint_);

    riskTitle_ = Theme::sectionTitle();
    layout->addWidget(riskTitle_);
    riskCard_ = new RiskCard;
    layout->addWidget(riskCard_);

    warnings_ = Theme::secondaryCaption();
    warningsToggle_ = Theme::disclosure(warnings_);
    layout->addWidget(warningsToggle_);
    layout->addWidget(warnings_);

    layout->addStretch();
    auto* offlineRow = new QHBoxLayout;
    offlineRow->addWidget(
        Theme::iconLabel(Theme::icon(QStringLiteral("quorvel-drive"), QStringLiteral("drive")), 14));
    offlineTitle_ = Theme::label(Theme::caption(true));
    offlineTitle_->setPalette(accentText);
    offlineRow->addWidget(offlineTitle_, 1);
    layout->addLayout(offlineRow);
    offlineBody_ = Theme::secondaryCaption();
    layout->addWidget(offlineBody_);

    // The sidebar scrolls when the window is short and every group is open.
    setWidget(content);
    setWidgetResizable(true);
    setFrameShape(QFrame::NoFrame);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
}

void Sidebar::refresh(const AppModel& model) {
    const L10n t = model.texts();
    const auto& analysis = model.analysis();
    subtitle_->setText(t.subtitle);
    countryBlock_->setVisible(analysis.has_value());
    if (analysis) {
        countryName_->setText(QString::fromStdString(analysis->country.name));
        countryEvidence_->setText(QString::fromStdString(analysis->country.evidence));
        countryProfile_->setText(analysis->country.hasProfile ? t.countryProfile : t.genericRecognition);
        heuristicZones_->setText(t.heuristicZonesText(model.heuristicZoneCount()));
    }
    languagePicker_->setCurrentIndex(static_cast<int>(model.language()));
    languagePicker_->setAccessibleName(t.languageLabel());
    alwaysHideTitle_->setText(t.alwaysHide);
    const QString required[4] = {t.numbers, t.address, t.birthDate, t.machineReadable};
    for (int i = 0; i < 4; ++i) {
        requiredRows_[i]->setText(required[i]);
    }
    machineReadableHint_->setText(t.machineReadableHint);
    additionalTitle_->setText(t.additional);
    const QString options[3] = {t.face, t.issueDate, t.expiryDate};
    const bool values[3] = {model.policy().hideFace, model.policy().hideIssueDate,
                            model.policy().hideExpiryDate};
    for (int i = 0; i < 3; ++i) {
        optionLabels_[i]->setText(options[i]);
        const QSignalBlocker quiet(optionSwitches_[i]);
        optionSwitches_[i]->setChecked(values[i]);
        optionSwitches_[i]->setEnabled(!model.busy());
        optionSwitches_[i]->setAccessibleName(options[i]);
    }
    additionalHint_->setText(t.additionalHint);
    markTitle_->setText(t.markTitle());
    markLabel_->setText(t.markSwitch());
    {
        const QSignalBlocker quiet(markSwitch_);
        markSwitch_->setChecked(model.markCopy());
    }
    markSwitch_->setEnabled(!model.busy());
    markSwitch_->setAccessibleName(t.markSwitch());
    purpose_->setPlaceholderText(t.purposePlaceholder());
    purpose_->setAccessibleName(t.purposePlaceholder());
    purpose_->setEnabled(model.markCopy());
    if (purpose_->text().trimmed() != model.purpose().trimmed() && !purpose_->hasFocus()) {
        purpose_->setText(model.purpose());
    }
    markHint_->setText(t.markHint());
    riskTitle_->setText(t.riskCheck);
    riskCard_->refresh(model);
    const bool hasWarnings = analysis && !analysis->warnings.empty();
    warningsToggle_->setVisible(hasWarnings);
    if (!hasWarnings) {
        warnings_->setVisible(false);
        warningsToggle_->setChecked(false);
    }
    if (analysis) {
        warningsToggle_->setText(t.reviewWarnings + QStringLiteral(" (") +
                                 QString::number(analysis->warnings.size()) + QStringLiteral(")"));
        QStringList lines;
        for (const std::string& warning : analysis->warnings) {
            lines << QString::fromStdString(warning);
        }
        warnings_->setText(lines.join(QStringLiteral("\n\n")));
    }
    offlineTitle_->setText(t.offlineTitle);
    offlineBody_->setText(t.offlineBody);
}
