#include "PDFPipeline.h"
#include "TestImages.h"
#include "TestPdfs.h"

#include <gtest/gtest.h>

using namespace testing_support;

namespace {

// The new PDF and every page as it was handed out.
struct PdfRun {
    std::vector<std::uint8_t> data;
    std::vector<PDFPageResult> pages;
};

class PdfPipeline : public ::testing::Test {
protected:
    PdfRun process(const std::vector<TestPage>& pages, const TestPdfOptions& options = {}) {
        writeBytes(dir / "in.pdf", makePdf(pages, options));
        PdfRun run;
        ProcessedPDF processed =
            PDFPipeline::process(PDFPipeline::load(dir / "in.pdf"), PDFPipeline::pdfPolicy(), {},
                                 [&](PDFPageResult&& page) { run.pages.push_back(std::move(page)); });
        EXPECT_EQ(processed.pages.size(), run.pages.size());
        for (std::size_t i = 0; i < std::min(processed.pages.size(), run.pages.size()); ++i) {
            EXPECT_EQ(processed.pages[i].regions.size(), run.pages[i].analysis.regions.size());
        }
        run.data = std::move(processed.data);
        return run;
    }

    DocumentError::Code loadError(const std::vector<std::uint8_t>& bytes) {
        writeBytes(dir / "bad.pdf", bytes);
        try {
            PDFPipeline::process(PDFPipeline::load(dir / "bad.pdf"), PDFPipeline::pdfPolicy());
        } catch (const DocumentError& error) {
            return error.code();
        }
        ADD_FAILURE() << "processed";
        return DocumentError::cancelled;
    }

    TempDir dir;
};

} // namespace

TEST_F(PdfPipeline, PageSizesFollowTheClampedScale) {
    // A4 renders at 2 pixels a point, letter too; a 2000 x 3000 point page at 1.
    const PdfRun pdf =
        process({TestPage{0, 0, 595, 842, {}}, TestPage{0, 0, 612, 792, {}}, TestPage{0, 0, 2000, 3000, {}}});
    ASSERT_EQ(pdf.pages.size(), 3u);
    EXPECT_EQ(pdf.pages[0].original.width, 1190);
    EXPECT_EQ(pdf.pages[0].original.height, 1684);
    EXPECT_EQ(pdf.pages[1].cleaned.width, 1224);
    EXPECT_EQ(pdf.pages[1].cleaned.height, 1584);
    EXPECT_EQ(pdf.pages[2].cleaned.width, 2000);
    EXPECT_EQ(pdf.pages[2].cleaned.height, 3000);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(pdf.pages[i].index, i);
    }
    const PdfFacts facts = inspectPdf(pdf.data);
    EXPECT_EQ(facts.pageSizes,
              (std::vector<std::pair<double, double>>{{1190, 1684}, {1224, 1584}, {2000, 3000}}));
}

TEST_F(PdfPipeline, APageTooLargeForItsScaleIsRenderedSmaller) {
    // 30,000 points across: at one pixel a point it would pass 20,000 pixels, so it is scaled to them.
    const PdfRun pdf = process({TestPage{0, 0, 30000, 1000, {}}});
    ASSERT_EQ(pdf.pages.size(), 1u);
    EXPECT_EQ(pdf.pages[0].original.width, 20000);
    EXPECT_EQ(pdf.pages[0].original.height, 667);
    EXPECT_EQ(inspectPdf(pdf.data).pageSizes, (std::vector<std::pair<double, double>>{{20000, 667}}));
}

TEST_F(PdfPipeline, APageIsDrawnWholeWhateverItsCropBox) {
    // The black square lies at the media box's lower-left corner, outside the crop box.
    TestPage page{0, 0, 595, 842, {}};
    page.blackCornerSquare = true;
    page.cropInset = 100;
    const PdfRun pdf = process({page});
    ASSERT_EQ(pdf.pages.size(), 1u);
    const Bitmap& original = pdf.pages[0].original;
    ASSERT_EQ(original.width, 1190);
    ASSERT_EQ(original.height, 1684);
    // 50 points at 2 pixels a point: the square fills the bottom-left 100 pixels, and nothing else is black.
    EXPECT_EQ(original.at(50, 1684 - 50)[0], 0);
    EXPECT_EQ(original.at(150, 1684 - 50)[0], 255);
    EXPECT_EQ(original.at(50, 1684 - 150)[0], 255);
    EXPECT_EQ(original.at(595, 842)[0], 255);
}

TEST_F(PdfPipeline, MaskingAgainFromTheAnalysesWritesWhatProcessingWrites) {
    const std::vector<TestPage> pages{TestPage{0, 0, 595, 842, {"SURNAME MARTIN", "Document No X4RTBPFW4"}},
                                      TestPage{0, 0, 595, 842, {"Date of birth 12.08.1974"}}};
    const PdfRun first = process(pages);
    std::vector<Analysis> analyses;
    for (const PDFPageResult& page : first.pages) {
        analyses.push_back(page.analysis);
    }
    auto original = [&](int index) { return first.pages[static_cast<std::size_t>(index)].original; };
    std::vector<Bitmap> cleaned(2);
    const auto again = PDFPipeline::remask(
        analyses, original, PDFPipeline::pdfPolicy(), std::nullopt,
        [&](int index, Bitmap&& page) { cleaned[static_cast<std::size_t>(index)] = std::move(page); });
    EXPECT_EQ(again, first.data);
    EXPECT_EQ(cleaned[1].pixels, first.pages[1].cleaned.pixels);
    // Another mark is drawn from the same analyses; names stay hidden whatever the policy says.
    const CopyMark mark{"COPY", "", "2026-11-23"};
    writeBytes(dir / "in.pdf", makePdf(pages));
    const ProcessedPDF marked =
        PDFPipeline::process(PDFPipeline::load(dir / "in.pdf"), RedactionPolicy{}, {}, {}, mark);
    EXPECT_EQ(PDFPipeline::remask(analyses, original, RedactionPolicy{}, mark, {}), marked.data);
}

TEST_F(PdfPipeline, NothingOfTheSourceSurvives) {
    const PdfRun pdf =
        process({TestPage{0, 0, 595, 842, {"SECRETWORD CLAIRE MARTIN", "Document No X4RTBPFW4"}}});
    const PdfFacts facts = inspectPdf(pdf.data);
    EXPECT_EQ(facts.infoKeys, std::vector<std::string>{"/Creator"});
    EXPECT_EQ(facts.creator, "Quorvel");
    EXPECT_FALSE(facts.hasXmp);
    EXPECT_FALSE(facts.hasDocumentID);
    EXPECT_FALSE(facts.hasFonts);
    EXPECT_EQ(facts.text.find("SECRETWORD"), std::string::npos);
    EXPECT_EQ(facts.text.find("X4RTBPFW4"), std::string::npos);
    const std::string raw(pdf.data.begin(), pdf.data.end());
    for (const char* leak :
         {"SECRETWORD", "Claire", "TestProducer", "2024", "Helvetica", "/Producer", "/CreationDate"}) {
        EXPECT_EQ(raw.find(leak), std::string::npos) << leak;
    }
    // The page itself was recognised, and the identifier on it masked.
    EXPECT_GT(pdf.pages[0].analysis.recognizedLines, 0);
    EXPECT_NE(pdf.pages[0].cleaned, pdf.pages[0].original);
}

TEST_F(PdfPipeline, AShiftedMediaBoxIsRenderedFromItsLowerLeftCorner) {
    const PdfRun pdf = process({TestPage{100, 200, 595, 842, {}, true}});
    const Bitmap& page = pdf.pages[0].original;
    // The 50-point square at the box's corner is 100 pixels in the bitmap's lower-left corner.
    EXPECT_EQ(page.at(10, page.height - 10)[0], 0);
    EXPECT_EQ(page.at(90, page.height - 90)[0], 0);
    EXPECT_EQ(page.at(110, page.height - 110)[0], 255);
    EXPECT_EQ(page.at(page.width - 10, 10)[0], 255);
}

TEST_F(PdfPipeline, BadFilesAreUnreadableImages) {
    const std::string text = "this is not a PDF at all";
    EXPECT_EQ(loadError(std::vector<std::uint8_t>(text.begin(), text.end())), DocumentError::invalidImage);
    const auto good = makePdf({TestPage{}});
    EXPECT_EQ(loadError(std::vector<std::uint8_t>(good.begin(), good.begin() + good.size() / 3)),
              DocumentError::invalidImage);
    EXPECT_EQ(loadError(makePdf({})), DocumentError::invalidImage);
    EXPECT_EQ(loadError(makePdf({TestPage{}}, TestPdfOptions{true, "secret"})), DocumentError::invalidImage);
    EXPECT_EQ(loadError(makePdf({TestPage{0, 0, 0, 842, {}}})), DocumentError::invalidImage);
    EXPECT_THROW(PDFPipeline::load(dir / "missing.pdf"), DocumentError);
}

TEST_F(PdfPipeline, NamesAreHiddenWhateverThePolicySays) {
    writeBytes(dir / "names.pdf", makePdf({TestPage{0, 0, 595, 842, {"SURNAME", "CLAIRE MARTIN"}}}));
    std::vector<Bitmap> cleaned;
    for (const RedactionPolicy& policy : {PDFPipeline::pdfPolicy(), RedactionPolicy{}}) {
        PDFPipeline::process(PDFPipeline::load(dir / "names.pdf"), policy, {},
                             [&](PDFPageResult&& page) { cleaned.push_back(std::move(page.cleaned)); });
    }
    ASSERT_EQ(cleaned.size(), 2u);
    EXPECT_EQ(cleaned[0], cleaned[1]);
    EXPECT_GT(blackPixels(cleaned[1]), 0u);
}

TEST(PdfPolicy, APdfIsKnownByItsNameInAnyCase) {
    EXPECT_TRUE(PDFPipeline::isPDFName("scan.pdf"));
    EXPECT_TRUE(PDFPipeline::isPDFName("/tmp/Scan.PdF"));
    EXPECT_FALSE(PDFPipeline::isPDFName("scan.pdf.png"));
    EXPECT_FALSE(PDFPipeline::isPDFName("pdf"));
}

TEST(PdfPolicy, NamesHiddenFacesAndDatesShown) {
    EXPECT_EQ(PDFPipeline::pdfPolicy(), (RedactionPolicy{false, false, false, true}));
}
