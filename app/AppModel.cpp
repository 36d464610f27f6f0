#include "AppModel.h"

#include "FileSystem.h"
#include "ImagePipeline.h"
#include "PDFPipeline.h"
#include "PlatformError.h"
#include "PngCodec.h"

#include <QDate>
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSettings>
#include <QtConcurrent/QtConcurrentRun>

#include <system_error>
#include <utility>

namespace {

constexpr double zoomStep = 0.5;
constexpr double maxZoom = 4.0;
constexpr double minZoom = 1.0;
// A drag thinner than this share of the picture is a slip, not a mask.
constexpr double minimumMaskSide = 0.002;

// The same file through any link or "." segment, also when it does not exist yet.
QString resolved(const QString& path) {
    const QFileInfo info(path);
    if (info.exists()) {
        return info.canonicalFilePath();
    }
    const QString folder = QDir(info.absolutePath()).canonicalPath();
    return QDir::cleanPath((folder.isEmpty() ? info.absolutePath() : folder) + QLatin1Char('/') +
                           info.fileName());
}

std::shared_ptr<const Bitmap> shared(Bitmap image) {
    return std::make_shared<const Bitmap>(std::move(image));
}

} // namespace

AppModel::Result AppModel::processPdf(const std::string& path, RedactionPolicy policy,
                                      const std::optional<CopyMark>& mark) {
    Result result;
    // Pages are kept as PNG and the one shown is decoded, so that a long PDF does not fill the memory.
    auto packed = [](const Bitmap& image) {
        return std::make_shared<const std::vector<std::uint8_t>>(platform::PngCodec::encode(image));
    };
    ProcessedPDF processed = PDFPipeline::process(
        PDFPipeline::load(path), policy, {},
        [&](PDFPageResult&& page) {
            result.pdfPages.push_back(
                Page{packed(page.original), packed(page.cleaned), std::move(page.analysis)});
            if (!result.original) {
                result.original = shared(std::move(page.original));
                result.output = shared(std::move(page.cleaned));
            }
        },
        mark);
    if (result.pdfPages.empty()) {
        throw DocumentError(DocumentError::invalidImage);
    }
    result.analysis = result.pdfPages.front().analysis;
    result.pdf = std::move(processed.data);
    result.pages = static_cast<int>(result.pdfPages.size());
    return result;
}

AppModel::Result AppModel::remaskPdf(const std::vector<Page>& pages, const RedactionPolicy& policy,
                                     const std::optional<CopyMark>& mark) {
    Result result;
    std::vector<Analysis> analyses;
    for (const Page& page : pages) {
        analyses.push_back(page.analysis);
    }
    result.pdfPages = pages;
    result.pdf = PDFPipeline::remask(
        analyses,
        [&](int index) {
            return platform::PngCodec::decode(*pages[static_cast<std::size_t>(index)].original);
        },
        policy, mark,
        [&](int index, Bitmap&& cleaned) {
            result.pdfPages[static_cast<std::size_t>(index)].output =
                std::make_shared<const std::vector<std::uint8_t>>(platform::PngCodec::encode(cleaned));
            if (index == 0) {
                result.output = shared(std::move(cleaned));
            }
        });
    if (result.pdfPages.empty()) {
        throw DocumentError(DocumentError::invalidImage);
    }
    result.original = shared(platform::PngCodec::decode(*result.pdfPages.front().original));
    result.analysis = result.pdfPages.front().analysis;
    result.pages = static_cast<int>(result.pdfPages.size());
    return result;
}

void AppModel::show(Result& result) {
    const int shownPage = currentPage_;
    original_ = result.original;
    analysis_ = std::move(result.analysis);
    output_ = result.output;
    pdfOutput_ = std::move(result.pdf);
    pdfPageCount_ = result.pages;
    pdfPages_ = std::move(result.pdfPages);
    // A page seen before a switch changed is seen again after it: every page shows the new masks.
    pagesSeen_.assign(pdfPages_.size(), false);
    currentPage_ = 0;
    if (!pdfPages_.empty()) {
        showPage(std::min(shownPage, static_cast<int>(pdfPages_.size()) - 1));
    }
    setStatus(&L10n::ready);
}

AppModel::AppModel(AppDialogs& dialogs, QObject* parent)
    : QObject(parent), dialogs_(dialogs), language_(AppLanguages::detected()), generation_(Uuid::random()) {
    showingConsent_ = needsConsent();
    markCopy_ = QSettings(QStringLiteral("Quorvel"), QStringLiteral("Quorvel"))
                    .value(QString::fromUtf8(markCopyKey), false)
                    .toBool();
}

std::optional<CopyMark> AppModel::copyMark() const {
    if (!markCopy_) {
        return std::nullopt;
    }
    return CopyMark{ImagePipeline::copyWord(AppLanguages::rawValue(language_).toStdString()),
                    purpose_.trimmed().toStdString(),
                    QDate::currentDate().toString(Qt::ISODate).toStdString()};
}

void AppModel::setMarkCopy(bool on) {
    if (on == markCopy_) {
        return;
    }
    markCopy_ = on;
    QSettings(QStringLiteral("Quorvel"), QStringLiteral("Quorvel"))
        .setValue(QString::fromUtf8(markCopyKey), on);
    emit changed();
    updateMasks();
}

void AppModel::setPurpose(const QString& purpose) {
    // One line, as long as a mark carries.
    QString line = purpose;
    line.replace(QRegularExpression(QStringLiteral("[\\x00-\\x1f\\x7f]")), QStringLiteral(" "));
    line.truncate(static_cast<int>(ImagePipeline::longestPurpose));
    if (line == purpose_) {
        return;
    }
    purpose_ = line;
    emit changed();
    if (markCopy_) {
        updateMasks();
    }
}

AppModel::~AppModel() = default;

std::vector<RedactionRegion> AppModel::activeRegions() const {
    std::vector<RedactionRegion> regions;
    if (analysis_) {
        for (const RedactionRegion& region : analysis_->regions) {
            if (policy_.hides(region.kind)) {
                regions.push_back(region);
            }
        }
    }
    regions.insert(regions.end(), manualRegions_.begin(), manualRegions_.end());
    return regions;
}

bool AppModel::canExport() const {
    return output_ && !busy_ && reviewed_ && allPagesSeen();
}

bool AppModel::needsConsent() const {
    const QSettings settings(QStringLiteral("Quorvel"), QStringLiteral("Quorvel"));
    const QVariant stored = settings.value(QLatin1String(consentKey));
    return !stored.isValid() || stored.toString() != QLatin1String(consentVersion);
}

int AppModel::heuristicZoneCount() const {
    int count = 0;
    if (analysis_) {
        for (const RedactionRegion& region : analysis_->regions) {
            count += policy_.hides(region.kind) && region.evidence == FieldEvidence::format;
        }
    }
    return count;
}

void AppModel::setLanguage(AppLanguage language) {
    const bool newWord = markCopy_ && language != language_;
    language_ = language;
    emit changed();
    if (newWord) {
        updateMasks(); // the mark says "copy" in the new language
    }
}

void AppModel::setPolicy(const RedactionPolicy& policy) {
    if (policy == policy_) {
        return;
    }
    policy_ = policy;
    emit changed();
    updateMasks();
}

void AppModel::setReviewed(bool reviewed) {
    reviewed_ = reviewed && allPagesSeen();
    emit changed();
}

void AppModel::showPage(int index) {
    if (index < 0 || index >= static_cast<int>(pdfPages_.size())) {
        return;
    }
    const Page& page = pdfPages_[static_cast<std::size_t>(index)];
    try {
        original_ = shared(platform::PngCodec::decode(*page.original));
        output_ = shared(platform::PngCodec::decode(*page.output));
    } catch (const platform::CodecError&) {
        return; // our own encoding: cannot fail but for memory, and then the page shown stays
    }
    currentPage_ = index;
    pagesSeen_[static_cast<std::size_t>(index)] = true;
    analysis_ = page.analysis;
    emit changed();
}

void AppModel::setShowOriginal(bool show) {
    showOriginal_ = show;
    if (show) {
        manualMode_ = false;
    }
    emit changed();
}

void AppModel::setManualMode(bool on) {
    manualMode_ = on;
    emit changed();
}

void AppModel::clearError() {
    error_.reset();
    emit changed();
}

void AppModel::setStatus(QString L10n::*text) {
    status_ = text;
}

void AppModel::fail(const QString& message) {
    error_ = message;
    emit changed();
}

// Opening waits for the running job and for the accepted terms; the consent sheet shows otherwise.
bool AppModel::mayOpen() {
    if (busy_) {
        return false;
    }
    if (needsConsent()) {
        showingConsent_ = true;
        emit changed();
        return false;
    }
    return true;
}

void AppModel::chooseFile() {
    if (!mayOpen()) {
        return;
    }
    if (const auto file = dialogs_.chooseOpenFile(texts().choosePhoto)) {
        load(*file);
    }
}

void AppModel::start(std::function<Result()> work, Apply apply) {
    auto* watcher = new QFutureWatcher<Result>(this);
    const Uuid generation = generation_;
    ++runningJobs_;
    connect(watcher, &QFutureWatcher<Result>::finished, this, [this, watcher, generation, apply] {
        watcher->deleteLater();
        --runningJobs_;
        if (generation == generation_) { // a superseded result writes nothing at all
            Result result = watcher->result();
            apply(result);
            emit changed();
        }
        if (runningJobs_ == 0) {
            emit idle();
        }
    });
    worker_ = watcher;
    watcher->setFuture(QtConcurrent::run([work = std::move(work)]() -> Result {
        try {
            return work();
        } catch (const std::exception& error) {
            Result failed;
            failed.failure = QString::fromUtf8(error.what());
            return failed;
        }
    }));
}

void AppModel::load(const QString& file) {
    if (!mayOpen()) {
        return;
    }
    const bool pdf = PDFPipeline::isPDFName(file.toStdString());
    // Busy before anyone hears of the change, so that a listener cannot start a second load inside this one.
    reset();
    sourceFile_ = file;
    isPDF_ = pdf;
    busy_ = true;
    setStatus(&L10n::processing);
    emit changed();
    const std::string path = file.toStdString();
    start(
        [path, pdf, mark = copyMark()]() -> Result {
            if (pdf) {
                return processPdf(path, RedactionPolicy{}, mark);
            }
            LoadedDocument document = ImagePipeline::load(path);
            Analysis analysis = ImagePipeline::analyze(document);
            Bitmap cleaned = ImagePipeline::render(document.image, analysis.regions, RedactionPolicy{}, mark);
            Result result;
            result.original = shared(std::move(document.image));
            result.analysis = std::move(analysis);
            result.output = shared(std::move(cleaned));
            return result;
        },
        [this](Result& result) {
            busy_ = false;
            if (result.failure) {
                error_ = result.failure;
                setStatus(&L10n::actionError);
                return;
            }
            show(result);
        });
}

void AppModel::updateMasks() {
    if (!original_ || busy_) {
        return;
    }
    reviewed_ = false;
    busy_ = true;
    emit changed();
    if (isPDF_ && sourceFile_) {
        // The pages' analyses stand; only their masks and mark are drawn again.
        start([pages = pdfPages_, policy = policy_,
               mark = copyMark()]() -> Result { return remaskPdf(pages, policy, mark); },
              [this](Result& result) {
                  busy_ = false;
                  if (result.failure) {
                      error_ = result.failure; // the previous pictures stay
                      return;
                  }
                  show(result);
              });
        return;
    }
    std::vector<RedactionRegion> regions = analysis_ ? analysis_->regions : std::vector<RedactionRegion>{};
    regions.insert(regions.end(), manualRegions_.begin(), manualRegions_.end());
    start(
        [image = original_, regions = std::move(regions), policy = policy_, mark = copyMark()]() -> Result {
            Result result;
            result.output = shared(ImagePipeline::render(*image, regions, policy, mark));
            return result;
        },
        [this](Result& result) {
            busy_ = false;
            if (result.failure) {
                output_.reset();
                error_ = result.failure;
                return;
            }
            output_ = result.output;
            setStatus(&L10n::ready);
        });
}

void AppModel::addMask(const Rect& rect) {
    if (busy_ || !original_) {
        return;
    }
    // Clipped to the picture; a side that needs no clipping keeps its own length, so that the size
    // test below is not decided by rounding.
    const double x0 = std::max(rect.minX(), 0.0), y0 = std::max(rect.minY(), 0.0);
    const double x1 = std::min(rect.maxX(), 1.0), y1 = std::min(rect.maxY(), 1.0);
    const double width = (x0 == rect.minX() && x1 == rect.maxX()) ? rect.width : x1 - x0;
    const double height = (y0 == rect.minY() && y1 == rect.maxY()) ? rect.height : y1 - y0;
    if (!(width > minimumMaskSide) || !(height > minimumMaskSide)) {
        return;
    }
    // Manual masks carry the evidence "found in the picture", as they always have.
    manualRegions_.push_back(RedactionRegion{FieldKind::manual, Rect{x0, y0, width, height}, Uuid::random(),
                                             FieldEvidence::vision});
    updateMasks();
}

void AppModel::undoLastMask() {
    if (busy_ || manualRegions_.empty()) {
        return;
    }
    manualRegions_.pop_back();
    updateMasks();
}

void AppModel::exportCopy() {
    if (!canExport()) {
        return;
    }
    const L10n t = texts();
    const QString title = t.saveLabel(isPDF_);
    const QString proposed = QStringLiteral("document-redacted-") +
                             QString::fromStdString(Uuid::random().string()).left(8) +
                             (isPDF_ ? QStringLiteral(".pdf") : QStringLiteral(".png"));
    const auto destination = dialogs_.chooseSaveFile(title, proposed, isPDF_);
    if (!destination) {
        return;
    }
    if (sourceFile_ && resolved(*destination) == resolved(*sourceFile_)) {
        fail(t.cannotReplaceOriginal());
        return;
    }
    if (QFileInfo::exists(*destination) &&
        !dialogs_.confirm(title, t.replaceQuestion(QFileInfo(*destination).fileName()), t.replaceAnswer(),
                          t.cancelAnswer())) {
        return;
    }
    busy_ = true;
    emit changed();
    start(
        [path = destination->toStdString(), pdf = isPDF_ ? pdfOutput_ : std::nullopt,
         image = output_]() -> Result {
            if (pdf) {
                platform::FileSystem::writeAtomically(path, *pdf);
            } else {
                ImagePipeline::exportPNG(*image, path);
            }
            return Result{};
        },
        [this](Result& result) {
            busy_ = false;
            if (result.failure) {
                error_ = result.failure;
                return;
            }
            setStatus(&L10n::saved);
        });
}

void AppModel::clear() {
    reset();
    emit changed();
}

void AppModel::reset() {
    generation_ = Uuid::random();
    // The running work, if any, goes on to its end; its result no longer matches the generation and is
    // dropped when it arrives.
    worker_ = nullptr;
    original_.reset();
    output_.reset();
    pdfOutput_.reset();
    pdfPageCount_ = 0;
    pdfPages_.clear();
    pagesSeen_.clear();
    currentPage_ = 0;
    analysis_.reset();
    sourceFile_.reset();
    manualRegions_.clear();
    reviewed_ = manualMode_ = showOriginal_ = false;
    zoom_ = 1.0;
    busy_ = isPDF_ = false;
    policy_ = RedactionPolicy{};
    setStatus(&L10n::localOnly);
}

void AppModel::zoomIn() {
    zoom_ = std::min(zoom_ + zoomStep, maxZoom);
    emit changed();
}

void AppModel::zoomFit() {
    zoom_ = minZoom;
    emit changed();
}

void AppModel::zoomOut() {
    zoom_ = std::max(zoom_ - zoomStep, minZoom);
    emit changed();
}

void AppModel::acceptConsent() {
    QSettings settings(QStringLiteral("Quorvel"), QStringLiteral("Quorvel"));
    settings.setValue(QLatin1String(consentKey), QLatin1String(consentVersion));
    settings.sync();
    showingConsent_ = false;
    emit changed();
    // Taken before loading: loading announces changes, and a listener may ask to open again.
    if (const std::optional<QString> file = std::exchange(pendingFile_, std::nullopt)) {
        load(*file);
    }
}

void AppModel::declineConsent() {
    pendingFile_.reset();
    emit quitRequested();
}

void AppModel::openAtStart(const QString& file) {
    if (showingConsent_) {
        pendingFile_ = file;
        return;
    }
    load(file);
}
