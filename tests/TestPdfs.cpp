#include "TestPdfs.h"

#include <poppler/cpp/poppler-document.h>
#include <poppler/cpp/poppler-page.h>
#include <qpdf/Buffer.hh>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFObjectHandle.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFWriter.hh>

#include <memory>

namespace testing_support {

std::vector<std::uint8_t> makePdf(const std::vector<TestPage>& pages, const TestPdfOptions& options) {
    QPDF pdf;
    pdf.emptyPDF();
    QPDFPageDocumentHelper helper(pdf);
    QPDFObjectHandle font = pdf.makeIndirectObject(QPDFObjectHandle::parse(
        "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Encoding /WinAnsiEncoding >>"));
    for (const TestPage& p : pages) {
        std::string content;
        if (p.blackCornerSquare) {
            content += "0 0 0 rg " + std::to_string(p.x) + " " + std::to_string(p.y) + " 50 50 re f\n";
        }
        double y = p.y + p.height - 80;
        for (const std::string& line : p.lines) {
            content += "BT /F1 28 Tf " + std::to_string(p.x + 60) + " " + std::to_string(y) + " Td (" + line +
                       ") Tj ET\n";
            y -= 48;
        }
        QPDFObjectHandle page = pdf.makeIndirectObject(
            QPDFObjectHandle::parse("<< /Type /Page /MediaBox [" + std::to_string(p.x) + " " +
                                    std::to_string(p.y) + " " + std::to_string(p.x + p.width) + " " +
                                    std::to_string(p.y + p.height) + "] /Resources << /Font << >> >> >>"));
        if (p.cropInset > 0) {
            const double i = p.cropInset;
            page.replaceKey("/CropBox", QPDFObjectHandle::parse("[" + std::to_string(p.x + i) + " " +
                                                                std::to_string(p.y + i) + " " +
                                                                std::to_string(p.x + p.width - i) + " " +
                                                                std::to_string(p.y + p.height - i) + "]"));
        }
        page.getKey("/Resources").getKey("/Font").replaceKey("/F1", font);
        page.replaceKey("/Contents", QPDFObjectHandle::newStream(&pdf, content));
        helper.addPage(QPDFPageObjectHelper(page), false);
    }
    if (options.withMetadata) {
        QPDFObjectHandle info = pdf.makeIndirectObject(QPDFObjectHandle::parse(
            "<< /Title (Passport of Claire Martin) /Author (Claire Martin) /Producer (TestProducer 1.0) "
            "/CreationDate (D:20240101120000Z) /ModDate (D:20240102120000Z) >>"));
        pdf.getTrailer().replaceKey("/Info", info);
        QPDFObjectHandle xmp = QPDFObjectHandle::newStream(
            &pdf, "<?xpacket begin=''?><x:xmpmeta xmlns:x='adobe:ns:meta/'>Claire "
                  "Martin</x:xmpmeta><?xpacket end='w'?>");
        xmp.getDict().replaceKey("/Type", QPDFObjectHandle::newName("/Metadata"));
        xmp.getDict().replaceKey("/Subtype", QPDFObjectHandle::newName("/XML"));
        pdf.getRoot().replaceKey("/Metadata", xmp);
    }
    QPDFWriter writer(pdf);
    writer.setOutputMemory();
    if (!options.userPassword.empty()) {
        writer.setR6EncryptionParameters(options.userPassword.c_str(), "owner", true, true, true, true, true,
                                         true, qpdf_r3p_full, true);
    }
    writer.write();
    const auto buffer = writer.getBufferSharedPointer();
    return std::vector<std::uint8_t>(buffer->getBuffer(), buffer->getBuffer() + buffer->getSize());
}

PdfFacts inspectPdf(const std::vector<std::uint8_t>& bytes) {
    PdfFacts facts;
    QPDF pdf;
    pdf.processMemoryFile("output", reinterpret_cast<const char*>(bytes.data()), bytes.size());
    for (QPDFObjectHandle page : pdf.getAllPages()) {
        QPDFObjectHandle box = page.getKey("/MediaBox");
        facts.pageSizes.emplace_back(
            box.getArrayItem(2).getNumericValue() - box.getArrayItem(0).getNumericValue(),
            box.getArrayItem(3).getNumericValue() - box.getArrayItem(1).getNumericValue());
        QPDFObjectHandle resources = page.getKey("/Resources");
        facts.hasFonts = facts.hasFonts || (resources.isDictionary() && resources.hasKey("/Font"));
    }
    QPDFObjectHandle info = pdf.getTrailer().getKey("/Info");
    if (info.isDictionary()) {
        for (const std::string& key : info.getKeys()) {
            facts.infoKeys.push_back(key);
        }
        if (info.hasKey("/Creator")) {
            facts.creator = info.getKey("/Creator").getUTF8Value();
        }
    }
    facts.hasXmp = pdf.getRoot().hasKey("/Metadata");
    facts.hasDocumentID = pdf.getTrailer().hasKey("/ID");
    std::unique_ptr<poppler::document> document(poppler::document::load_from_raw_data(
        reinterpret_cast<const char*>(bytes.data()), static_cast<int>(bytes.size())));
    for (int i = 0; document && i < document->pages(); ++i) {
        std::unique_ptr<poppler::page> page(document->create_page(i));
        const auto text = page->text().to_utf8();
        facts.text += std::string(text.begin(), text.end());
    }
    return facts;
}

} // namespace testing_support
