#pragma once

// The left column: the country found, the interface language, what is always hidden, the switches
// for the rest, the risk card, the warnings and the offline note. Scrolls when the window is short.

#include <QScrollArea>

class AppModel;
class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QToolButton;
class QWidget;
class RiskCard;

class Sidebar : public QScrollArea {
    Q_OBJECT

public:
    explicit Sidebar(AppModel& model);
    void refresh(const AppModel& model);

private:
    QLabel* subtitle_;
    QWidget* countryBlock_;
    QLabel* countryName_;
    QLabel* countryEvidence_;
    QLabel* countryProfile_;
    QLabel* heuristicZones_;
    QComboBox* languagePicker_;
    QLabel* alwaysHideTitle_;
    QLabel* requiredRows_[4];
    QLabel* machineReadableHint_;
    QLabel* additionalTitle_;
    QLabel* optionLabels_[3];
    QCheckBox* optionSwitches_[3];
    QLabel* additionalHint_;
    QLabel* markTitle_;
    QLabel* markLabel_;
    QCheckBox* markSwitch_;
    QLineEdit* purpose_;
    QLabel* markHint_;
    QLabel* riskTitle_;
    RiskCard* riskCard_;
    QToolButton* warningsToggle_;
    QLabel* warnings_;
    QLabel* offlineTitle_;
    QLabel* offlineBody_;
};
