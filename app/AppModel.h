#pragma once

// The application's one state object: the open document, its analysis, the switches and manual masks,
// the busy flag, the status line and the last error. Views read it and call it; it is the only caller
// of the document core. Lives on the main thread; heavy work runs on worker threads with copies of
// its inputs, and results of superseded work are dropped by the generation token.

#include "AppDialogs.h"
#include "DocumentTypes.h"
#include "L10n.h"

#include <QFutureWatcher>
#include <QObject>
#include <QPointer>
#include <QString>

#include <algorithm>
#include <memory>
#include <optional>
#include <vector>

class AppModel : public QObject {
    Q_OBJECT

public:
    // The consent text version the user must have accepted.
    static constexpr const char* consentVersion = "2026-09-18";
    static constexpr const char* consentKey = "consent.version";

    explicit AppModel(AppDialogs& dialogs, QObject* parent = nullptr);
    ~AppModel() override;

    // Published state.
    AppLanguage language() const { return language_; }
    L10n texts() const { return L10n(language_); }
    std::shared_ptr<const Bitmap> original() const { return original_; }
    std::shared_ptr<const Bitmap> output() const { return output_; }
    const std::optional<std::vector<std::uint8_t>>& pdfOutput() const { return pdfOutput_; }
    int pdfPageCount() const { return pdfPageCount_; }
    // The PDF page shown (from 0), and whether every page's result has been shown: a PDF is saved only
    // once the person has seen all of it.
    int currentPage() const { return currentPage_; }
    bool allPagesSeen() const {
        return std::find(pagesSeen_.begin(), pagesSeen_.end(), false) == pagesSeen_.end();
    }
    bool isPDF() const { return isPDF_; }
    const std::optional<Analysis>& analysis() const { return analysis_; }
    const RedactionPolicy& policy() const { return policy_; }
    const std::vector<RedactionRegion>& manualRegions() const { return manualRegions_; }
    bool busy() const { return busy_; }
    // In the current language, also when the language changes after the status was set.
    QString status() const { return texts().*status_; }
    const std::optional<QString>& error() const { return error_; }
    bool reviewed() const { return reviewed_; }
    bool showOriginal() const { return showOriginal_; }
    bool manualMode() const { return manualMode_; }
    double zoom() const { return zoom_; }
    bool showingConsent() const { return showingConsent_; }
    // The copy mark: whether it is written (remembered between sessions), and the purpose typed for
    // this session only (the program keeps nothing typed).
    bool markCopy() const { return markCopy_; }
    const QString& purpose() const { return purpose_; }
    static constexpr const char* markCopyKey = "mark.copy";
    // Worker jobs still running, superseded ones included; zero means no result can still arrive.
    int runningJobs() const { return runningJobs_; }

    // Derived values.
    std::vector<RedactionRegion> activeRegions() const;
    bool canExport() const;
    bool needsConsent() const;
    // Regions the policy keeps whose evidence is only their form.
    int heuristicZoneCount() const;

    // Setters of what the views bind to. A policy change re-renders.
    void setLanguage(AppLanguage language);
    void setPolicy(const RedactionPolicy& policy);
    void setReviewed(bool reviewed);
    // Shows another page of a PDF: its original, result and analysis.
    void showPage(int index);
    void setShowOriginal(bool show);
    void setManualMode(bool on);
    // Each re-renders when it changes the mark.
    void setMarkCopy(bool on);
    void setPurpose(const QString& purpose);
    void clearError();

    // Operations.
    void chooseFile();
    void load(const QString& file);
    void updateMasks();
    void addMask(const Rect& normalised);
    void undoLastMask();
    void exportCopy();
    void clear();
    void zoomIn();
    void zoomOut();
    void zoomFit();
    void acceptConsent();
    // The person does not accept the terms: nothing is stored and the program ends.
    void declineConsent();
    // A file named at start (the file manager's "Open with"): opened now, or once the terms are accepted.
    void openAtStart(const QString& file);

signals:
    // Any published value changed.
    void changed();
    // The last running job has ended (its result applied or dropped).
    void idle();
    void quitRequested();

private:
    bool mayOpen();
    // Back to no document, without telling the views.
    void reset();
    struct Page {
        std::shared_ptr<const std::vector<std::uint8_t>> original, output; // PNG
        Analysis analysis;
    };
    struct Result {
        std::shared_ptr<const Bitmap> original;
        std::optional<Analysis> analysis;
        std::shared_ptr<const Bitmap> output;
        std::optional<std::vector<std::uint8_t>> pdf;
        int pages = 0;
        std::optional<QString> failure;
        std::vector<Page> pdfPages;
    };

    using Apply = std::function<void(Result&)>;
    // Renders, analyses and masks every page; the first page is what the window shows.
    static Result processPdf(const std::string& path, RedactionPolicy policy,
                             const std::optional<CopyMark>& mark);
    // The pages of the PDF shown, masked again under another policy or mark from their kept analyses.
    static Result remaskPdf(const std::vector<Page>& pages, const RedactionPolicy& policy,
                            const std::optional<CopyMark>& mark);
    // The mark as it is drawn now: the word in the interface language and today's date.
    std::optional<CopyMark> copyMark() const;
    // A finished document becomes the one shown.
    void show(Result& result);
    // Runs `work` on a worker thread; `apply` runs on the main thread if the generation still matches.
    void start(std::function<Result()> work, Apply apply);
    void setStatus(QString L10n::*text);
    void fail(const QString& message);

    AppDialogs& dialogs_;
    AppLanguage language_;
    std::shared_ptr<const Bitmap> original_, output_;
    std::optional<std::vector<std::uint8_t>> pdfOutput_;
    int pdfPageCount_ = 0;
    std::vector<Page> pdfPages_;
    int currentPage_ = 0;
    std::vector<bool> pagesSeen_;
    bool isPDF_ = false;
    std::optional<Analysis> analysis_;
    RedactionPolicy policy_;
    std::vector<RedactionRegion> manualRegions_;
    bool busy_ = false;
    QString L10n::*status_ = &L10n::localOnly;
    std::optional<QString> error_;
    bool reviewed_ = false;
    bool showOriginal_ = false;
    bool manualMode_ = false;
    double zoom_ = 1.0;
    bool showingConsent_ = false;
    bool markCopy_ = false;
    QString purpose_;
    int runningJobs_ = 0;
    std::optional<QString> pendingFile_;

    Uuid generation_;
    std::optional<QString> sourceFile_;
    QPointer<QFutureWatcher<Result>> worker_;
};
