#pragma once

#include "AppDialogs.h"

class QWidget;

// The desktop's own open and save panels.
class QtDialogs : public AppDialogs {
public:
    void setParent(QWidget* parent) { parent_ = parent; }
    std::optional<QString> chooseOpenFile(const QString& title) override;
    std::optional<QString> chooseSaveFile(const QString& title, const QString& proposedName,
                                          bool pdf) override;
    bool confirm(const QString& title, const QString& question, const QString& yes,
                 const QString& no) override;

private:
    QWidget* parent_ = nullptr;
};
