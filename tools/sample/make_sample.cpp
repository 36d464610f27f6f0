// Draws the bundled specimen card: invented data only, Latin text in OpenCV's built-in font.
// Usage: quorvel-make-sample OUT.jpg

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <iostream>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: quorvel-make-sample OUT.jpg\n";
        return 2;
    }
    const int width = 1600, height = 1010; // ID-1 proportions, about 475 dpi
    cv::Mat card(height, width, CV_8UC3, cv::Scalar(236, 228, 214));
    for (int y = 0; y < height; y += 6) {
        cv::line(card, {0, y}, {width, y + 40}, cv::Scalar(226, 220, 206), 1);
    }
    cv::rectangle(card, {0, 0}, {width, 120}, cv::Scalar(150, 90, 40), cv::FILLED);
    const auto font = cv::FONT_HERSHEY_DUPLEX;
    auto text = [&](const std::string& s, int x, int y, double size, cv::Scalar colour = {30, 30, 30}, int weight = 2) {
        cv::putText(card, s, {x, y}, font, size, colour, weight, cv::LINE_AA);
    };
    text("UTOPIA", 60, 80, 1.8, {255, 255, 255}, 3);
    text("IDENTITY CARD / SPECIMEN", 520, 80, 1.3, {255, 255, 255}, 2);
    cv::rectangle(card, {60, 170}, {460, 690}, cv::Scalar(180, 170, 160), cv::FILLED);
    cv::circle(card, {260, 360}, 110, cv::Scalar(120, 110, 100), cv::FILLED);
    cv::ellipse(card, {260, 640}, {190, 150}, 0, 180, 360, cv::Scalar(120, 110, 100), cv::FILLED);

    const int labelX = 520, valueX = 520;
    int y = 200;
    auto field = [&](const std::string& label, const std::string& value) {
        text(label, labelX, y, 0.8, {90, 90, 90}, 1);
        text(value, valueX, y + 48, 1.35);
        y += 110;
    };
    field("Surname", "ERIKSSON");
    field("Given names", "ANNA MARIA");
    field("Date of birth", "12.08.1974");
    field("Document No.", "L898902C3");
    field("Address", "12 HARBOUR STREET, PORTVILLE");
    text("Date of expiry", 1150, 420, 0.8, {90, 90, 90}, 1);
    text("15.04.2032", 1150, 468, 1.35);

    const auto mono = cv::FONT_HERSHEY_SIMPLEX;
    const char* mrz[] = {"I<UTOL898902C36<<<<<<<<<<<<<<<", "7408122F3204153UTO<<<<<<<<<<<4",
                         "ERIKSSON<<ANNA<MARIA<<<<<<<<<<"};
    for (int i = 0; i < 3; ++i) {
        cv::putText(card, mrz[i], {60, 850 + i * 62}, mono, 1.55, cv::Scalar(20, 20, 20), 3, cv::LINE_AA);
    }
    if (!cv::imwrite(argv[1], card, {cv::IMWRITE_JPEG_QUALITY, 88})) {
        std::cerr << "cannot write " << argv[1] << "\n";
        return 1;
    }
    return 0;
}
