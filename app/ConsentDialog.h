#pragma once

// Asked before the first document is opened, and again whenever the terms change: processing is local,
// with links to the terms and the privacy policy installed with the program.

#include <QDialog>

class AppModel;
class QCheckBox;
class QPushButton;

class ConsentDialog : public QDialog {
    Q_OBJECT

public:
    ConsentDialog(AppModel& model, QWidget* parent);

    // Where an installed text file is, or an empty string.
    static QString resourcePath(const QString& name);
    QPushButton* continueButton() const { return continue_; }
    QCheckBox* acceptBox() const { return accept_; }

protected:
    // Escape or the sheet's close button: the terms are not accepted, and the program ends.
    void reject() override;

private:
    AppModel& model_;
    QCheckBox* accept_;
    QPushButton* continue_;
};
