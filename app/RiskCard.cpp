#include "RiskCard.h"

#include "AppModel.h"
#include "Theme.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QToolButton>
#include <QVBoxLayout>

RiskCard::RiskCard() {
    setObjectName(QStringLiteral("riskCard"));
    setStyleSheet(
        QStringLiteral("#riskCard { background: rgba(255, 255, 255, 0.045); border-radius: 12px; }"));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(12, 12, 12, 12);
    heading_ = Theme::label(Theme::sized(13, QFont::Medium));
    layout->addWidget(heading_);
    auto* scoreRow = new QHBoxLayout;
    score_ = Theme::label(Theme::sized(35, QFont::Medium));
    score_->setWordWrap(false);
    scoreRow->addWidget(score_, 0, Qt::AlignBaseline);
    outOf_ = Theme::secondaryCaption();
    outOf_->setText(QStringLiteral("/ 100"));
    scoreRow->addWidget(outOf_, 0, Qt::AlignBaseline);
    scoreRow->addStretch();
    layout->addLayout(scoreRow);
    subtext_ = Theme::secondaryCaption();
    layout->addWidget(subtext_);
    results_ = Theme::label(Theme::caption());
    resultsToggle_ = Theme::disclosure(results_);
    layout->addWidget(resultsToggle_);
    layout->addWidget(results_);
}

void RiskCard::refresh(const AppModel& model) {
    const L10n t = model.texts();
    const auto& analysis = model.analysis();
    heading_->setVisible(analysis.has_value());
    resultsToggle_->setVisible(analysis.has_value());
    if (!analysis) {
        score_->setFont(Theme::sized(30));
        score_->setText(QStringLiteral("—"));
        outOf_->setVisible(false);
        subtext_->setText(t.riskWaiting);
        results_->setVisible(false);
        resultsToggle_->setChecked(false);
        return;
    }
    const auto& score = analysis->risk.score;
    heading_->setText(score ? t.riskIndex : t.riskNotEnough);
    score_->setFont(Theme::sized(35, QFont::Medium));
    score_->setText(score ? QString::number(*score) : QStringLiteral("—"));
    outOf_->setVisible(score.has_value());
    subtext_->setText(t.riskDisclaimer);
    resultsToggle_->setText(t.riskResults);
    QStringList findings;
    for (const std::string& finding : analysis->risk.findings) {
        findings << QString::fromStdString(finding);
    }
    results_->setText(findings.join(QStringLiteral("\n\n")));
}
