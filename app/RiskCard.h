#pragma once

// The sidebar's risk card: the index out of 100 when checks were made, a dash before, and the
// findings behind a disclosure.

#include <QFrame>

class AppModel;
class QLabel;
class QToolButton;

class RiskCard : public QFrame {
    Q_OBJECT

public:
    RiskCard();
    void refresh(const AppModel& model);

private:
    QLabel* heading_;
    QLabel* score_;
    QLabel* outOf_;
    QLabel* subtext_;
    QToolButton* resultsToggle_;
    QLabel* results_;
};
