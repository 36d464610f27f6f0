#include "DocumentTypes.h"
#include "FileSystem.h"
#include "ImagePipeline.h"
#include "TestImages.h"

#include <gtest/gtest.h>
#include <png.h>

#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <system_error>

using namespace testing_support;

namespace {

RedactionRegion region(FieldKind kind, Rect rect) {
    return RedactionRegion{kind, rect, Uuid::random(), FieldEvidence::format};
}

const RedactionPolicy defaults;

} // namespace

TEST(Render, PaddingFollowsTheHeightOnlyAndRoundsOutward) {
    struct Case {
        int width, height, padding;
    };
    // 0.004 x 500 = 2 is raised to 3; 1000 gives 4; 4000 gives 16 whatever the width.
    for (const Case c : {Case{800, 500, 3}, Case{300, 1000, 4}, Case{200, 4000, 16}}) {
        const Bitmap image = patterned(c.width, c.height);
        const Bitmap out =
            ImagePipeline::render(image, {region(FieldKind::number, Rect{0.5, 0.5, 0.1, 0.1})}, defaults);
        const auto box = blackBox(out);
        ASSERT_TRUE(box);
        const int x0 = c.width / 2, y0 = c.height / 2;
        const int x1 = static_cast<int>(std::ceil(0.6 * c.width)),
                  y1 = static_cast<int>(std::ceil(0.6 * c.height));
        EXPECT_EQ(*box, (Box{x0 - c.padding, y0 - c.padding, x1 + c.padding, y1 + c.padding})) << c.height;
    }
}

TEST(Render, FractionalEdgesRoundOutward) {
    // 0.1234 x 1000 = 123.4 minus padding 4 = 119.4, floored to 119; 0.2 x 1000 + 4 = 204, kept.
    const Bitmap out = ImagePipeline::render(
        patterned(1000, 1000), {region(FieldKind::number, Rect{0.1234, 0.1, 0.0766, 0.05})}, defaults);
    EXPECT_EQ(*blackBox(out), (Box{119, 96, 204, 154}));
}

TEST(Render, MasksArePureBlackWithHardEdgesAndTheRestIsUntouched) {
    const Bitmap image = patterned(640, 480);
    const Bitmap out =
        ImagePipeline::render(image, {region(FieldKind::address, Rect{0.25, 0.25, 0.5, 0.5})}, defaults);
    const Box box = *blackBox(out);
    EXPECT_EQ(blackPixels(out), static_cast<std::size_t>((box.x1 - box.x0) * (box.y1 - box.y0)));
    for (int y = 0; y < out.height; ++y) {
        for (int x = 0; x < out.width; ++x) {
            const bool inside = x >= box.x0 && x < box.x1 && y >= box.y0 && y < box.y1;
            if (!inside) {
                ASSERT_EQ(0, std::memcmp(out.at(x, y), image.at(x, y), 3)) << x << "," << y;
            }
        }
    }
    EXPECT_EQ(image, patterned(640, 480)); // the input is never changed
}

TEST(Render, EachSwitchAloneHidesItsOwnKindOnly) {
    const Bitmap image = patterned(200, 200);
    const std::vector<FieldKind> kinds{FieldKind::face, FieldKind::issueDate, FieldKind::expiryDate,
                                       FieldKind::personName};
    std::vector<RedactionRegion> regions;
    for (std::size_t i = 0; i < kinds.size(); ++i) {
        regions.push_back(region(kinds[i], Rect{0.05 + 0.24 * static_cast<double>(i), 0.4, 0.1, 0.1}));
    }
    for (std::size_t on = 0; on < kinds.size(); ++on) {
        RedactionPolicy policy;
        bool* switches[] = {&policy.hideFace, &policy.hideIssueDate, &policy.hideExpiryDate,
                            &policy.hidePersonName};
        *switches[on] = true;
        const Bitmap out = ImagePipeline::render(image, regions, policy);
        for (std::size_t i = 0; i < kinds.size(); ++i) {
            const int x = static_cast<int>((0.1 + 0.24 * static_cast<double>(i)) * 200);
            const bool black = out.at(x, 90)[0] == 0 && out.at(x, 90)[1] == 0 && out.at(x, 90)[2] == 0;
            EXPECT_EQ(black, i == on) << rawValue(kinds[on]) << " on, " << rawValue(kinds[i]) << " looked at";
        }
    }
}

TEST(Render, TopOfTheNormalisedSpaceIsTheTopOfThePicture) {
    const Bitmap out =
        ImagePipeline::render(patterned(400, 500), {region(FieldKind::number, Rect{0, 0, 1, 0.1})}, defaults);
    EXPECT_EQ(*blackBox(out), (Box{0, 0, 400, 53}));
}

TEST(Render, RegionsAreClippedToTheImageBeforePadding) {
    const Bitmap out = ImagePipeline::render(patterned(1000, 1000),
                                             {region(FieldKind::number, Rect{0.9, 0.9, 0.5, 0.5})}, defaults);
    EXPECT_EQ(*blackBox(out), (Box{896, 896, 1000, 1000}));
}

TEST(Render, EmptyOutsideAndNonFiniteRegionsPaintNothing) {
    const Bitmap image = patterned(300, 300);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const std::vector<RedactionRegion> regions{
        region(FieldKind::number, Rect{1.2, 0.1, 0.3, 0.3}),
        region(FieldKind::number, Rect{0.2, 0.2, 0, 0.3}),
        region(FieldKind::number, Rect{-0.5, 0.1, 0.5, 0.3}),
        region(FieldKind::number, Rect{nan, 0.1, 0.2, 0.2}),
        region(FieldKind::number, Rect{0.1, 0.1, 0.2, nan}),
    };
    EXPECT_EQ(ImagePipeline::render(image, regions, defaults), image);
}

TEST(Render, PolicyDecidesOptionalKindsAndUncertainOrManualAlwaysPaint) {
    const Bitmap image = patterned(200, 200);
    const Rect rect{0.4, 0.4, 0.2, 0.2};
    for (FieldKind kind :
         {FieldKind::face, FieldKind::issueDate, FieldKind::expiryDate, FieldKind::personName}) {
        EXPECT_EQ(ImagePipeline::render(image, {region(kind, rect)}, defaults), image) << rawValue(kind);
        EXPECT_NE(ImagePipeline::render(image, {region(kind, rect)}, RedactionPolicy{true, true, true, true}),
                  image);
    }
    for (FieldKind kind :
         {FieldKind::uncertain, FieldKind::manual, FieldKind::machineReadable, FieldKind::email}) {
        EXPECT_GT(blackPixels(ImagePipeline::render(image, {region(kind, rect)}, defaults)), 0u)
            << rawValue(kind);
    }
}

class Export : public ::testing::Test {
protected:
    TempDir dir;
};

TEST_F(Export, WritesOnlyTheChunksAnImageNeedsAndDecodesToTheSamePixels) {
    const Bitmap image = ImagePipeline::render(
        patterned(123, 77), {region(FieldKind::number, Rect{0.1, 0.1, 0.3, 0.3})}, defaults);
    ImagePipeline::exportPNG(image, dir / "out.png");
    const auto bytes = readBytes(dir / "out.png");
    EXPECT_EQ(pngChunks(bytes), (std::vector<std::string>{"IHDR", "IDAT", "IEND"}));
    EXPECT_EQ(ImagePipeline::load(dir / "out.png").image, image);
    EXPECT_EQ(dir.entries(), std::vector<std::string>{"out.png"});
}

TEST_F(Export, TransparencyComesOutWhite) {
    // Fully transparent red pixels and one opaque blue one.
    std::vector<std::uint8_t> rgba(4 * 4 * 4, 0);
    for (std::size_t i = 0; i < rgba.size(); i += 4) {
        rgba[i] = 255;
    }
    rgba[0] = 0, rgba[2] = 255, rgba[3] = 255;
    writeBytes(dir / "alpha.png", encodePng(4, 4, PNG_COLOR_TYPE_RGB_ALPHA, 8, rgba));
    const Bitmap loaded = ImagePipeline::load(dir / "alpha.png").image;
    ImagePipeline::exportPNG(ImagePipeline::render(loaded, {}, defaults), dir / "out.png");
    const Bitmap out = ImagePipeline::load(dir / "out.png").image;
    EXPECT_EQ(std::vector<std::uint8_t>(out.at(0, 0), out.at(0, 0) + 3),
              (std::vector<std::uint8_t>{0, 0, 255}));
    EXPECT_EQ(std::vector<std::uint8_t>(out.at(3, 3), out.at(3, 3) + 3),
              (std::vector<std::uint8_t>{255, 255, 255}));
}

TEST_F(Export, TransparencyByATransparentColourComesOutWhiteInEveryColourType) {
    struct Case {
        const char* name;
        int type;
        std::vector<std::uint8_t> samples, transparent;
        std::vector<std::uint8_t> firstPixel; // the second pixel is the transparent one
    };
    const std::vector<Case> cases{
        // Palette entries red, green, blue, white; green made half transparent, blue fully.
        {"palette", PNG_COLOR_TYPE_PALETTE, {0, 2, 1, 0}, {255, 128, 0}, {255, 0, 0}},
        {"grey", PNG_COLOR_TYPE_GRAY, {10, 200, 10, 10}, {200}, {10, 10, 10}},
        {"RGB", PNG_COLOR_TYPE_RGB, {1, 2, 3, 9, 8, 7, 1, 2, 3, 1, 2, 3}, {9, 8, 7}, {1, 2, 3}},
    };
    for (const Case& c : cases) {
        writeBytes(dir / "in.png", encodePng(2, 2, c.type, 8, c.samples, {}, c.transparent));
        const Bitmap loaded = ImagePipeline::load(dir / "in.png").image;
        ImagePipeline::exportPNG(ImagePipeline::render(loaded, {}, defaults), dir / "out.png");
        const Bitmap out = ImagePipeline::load(dir / "out.png").image;
        EXPECT_EQ(std::vector<std::uint8_t>(out.at(0, 0), out.at(0, 0) + 3), c.firstPixel) << c.name;
        EXPECT_EQ(std::vector<std::uint8_t>(out.at(1, 0), out.at(1, 0) + 3),
                  (std::vector<std::uint8_t>{255, 255, 255}))
            << c.name;
    }
    // The half-transparent green of the palette lies between green and white.
    writeBytes(dir / "in.png", encodePng(2, 2, PNG_COLOR_TYPE_PALETTE, 8, {1, 1, 1, 1}, {}, {255, 128}));
    const Bitmap half = ImagePipeline::load(dir / "in.png").image;
    EXPECT_NEAR(half.at(0, 0)[0], 127, 2);
    EXPECT_EQ(half.at(0, 0)[1], 255);
}

TEST_F(Export, ReplacesAnExistingFileWhole) {
    const std::vector<std::uint8_t> old(100000, 'x');
    writeBytes(dir / "out.png", old);
    ImagePipeline::exportPNG(patterned(10, 10), dir / "out.png");
    const auto bytes = readBytes(dir / "out.png");
    EXPECT_LT(bytes.size(), old.size());
    EXPECT_EQ(pngChunks(bytes).back(), "IEND");
    EXPECT_EQ(dir.entries(), std::vector<std::string>{"out.png"});
}

TEST_F(Export, AnImageItsOwnReaderWouldRefuseIsNeverWritten) {
    // Wider than any PNG the program reads back: the copy would be saved and then refused on opening.
    EXPECT_THROW(ImagePipeline::exportPNG(Bitmap(100001, 1), dir / "wide.png"), DocumentError);
    EXPECT_TRUE(dir.entries().empty());
}

TEST_F(Export, AFolderWithoutWritePermissionGivesTheSystemErrorAndStaysAsItWas) {
    const auto locked = dir / "locked";
    std::filesystem::create_directory(locked);
    writeBytes(locked / "keep.txt", std::vector<std::uint8_t>{'k'});
    ::chmod(dir.path().c_str(), 0755);
    ::chmod(locked.c_str(), 0555);
    // Root ignores permission bits; act as an ordinary user for the write.
    const bool root = ::geteuid() == 0;
    if (root) {
        ASSERT_EQ(::seteuid(65534), 0);
    }
    std::string message;
    int code = 0;
    try {
        ImagePipeline::exportPNG(patterned(10, 10), locked / "out.png");
    } catch (const std::system_error& error) {
        message = error.what();
        code = error.code().value();
    }
    if (root) {
        ASSERT_EQ(::seteuid(0), 0);
    }
    EXPECT_EQ(code, EACCES);
    EXPECT_NE(message.find((locked / "out.png").string()), std::string::npos) << message;
    EXPECT_NE(message.find("Permission denied"), std::string::npos) << message;
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(locked)) {
        names.push_back(entry.path().filename().string());
    }
    EXPECT_EQ(names, std::vector<std::string>{"keep.txt"});
}

TEST_F(Export, AMissingFolderLeavesNothingBehind) {
    EXPECT_THROW(ImagePipeline::exportPNG(patterned(10, 10), dir / "missing" / "out.png"), std::system_error);
    EXPECT_TRUE(dir.entries().empty());
}

TEST_F(Export, AProgramKilledWhileSavingLeavesTheOldFileAndNothingElse) {
    const std::vector<std::uint8_t> old(100, 'x');
    writeBytes(dir / "out.png", old);
    const Bitmap large = patterned(1200, 900);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        // The kernel stops the program with SIGXFSZ once the file passes 64 KB: midway through the write.
        const rlimit limit{65536, 65536};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        ImagePipeline::exportPNG(large, dir / "out.png");
        ::_exit(0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status)) << status;
    EXPECT_EQ(dir.entries(), std::vector<std::string>{"out.png"});
    EXPECT_EQ(readBytes(dir / "out.png"), old);
}

TEST_F(Export, ASaveStoppedBySigtermLeavesNothingWhereFilesMustBeNamed) {
    // Without /proc an unnamed file cannot be named, and saving falls back to a hidden named file. The
    // child hides /proc in a mount namespace of its own (root only) and saves again and again; the
    // test stops it with SIGTERM as soon as a hidden file shows.
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::close(ready[0]);
        const bool hidden = ::unshare(CLONE_NEWNS) == 0 &&
                            ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                            ::mount("none", "/proc", "tmpfs", 0, nullptr) == 0;
        const char answer = hidden ? 'y' : 'n';
        (void)!::write(ready[1], &answer, 1);
        if (!hidden) {
            ::_exit(0);
        }
        const std::vector<std::uint8_t> bytes(64 << 20, 'x');
        for (int i = 0; i < 50; ++i) {
            platform::FileSystem::writeAtomically(dir / "out.bin", bytes);
        }
        ::_exit(0);
    }
    ::close(ready[1]);
    char answer = 'n';
    (void)!::read(ready[0], &answer, 1);
    ::close(ready[0]);
    bool stopped = false;
    while (answer == 'y' && !stopped) {
        for (const std::string& name : dir.entries()) {
            if (name.starts_with(".out.bin.quorvel-")) {
                stopped = ::kill(child, SIGTERM) == 0;
                break;
            }
        }
        if (!stopped && ::waitpid(child, nullptr, WNOHANG) == child) {
            GTEST_SKIP() << "every save finished before a hidden file was seen";
        }
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    if (answer != 'y') {
        GTEST_SKIP() << "no mount namespace here";
    }
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
    for (const std::string& name : dir.entries()) {
        EXPECT_FALSE(name.starts_with(".out.bin.quorvel-")) << name;
    }
}

TEST_F(Export, TheSystemsTemporaryFolderPlaysNoPart) {
    const char* saved = std::getenv("TMPDIR");
    const std::string previous = saved ? saved : "";
    ::setenv("TMPDIR", (dir.path() / "no-such-folder").c_str(), 1);
    ImagePipeline::exportPNG(patterned(10, 10), dir / "out.png");
    saved ? ::setenv("TMPDIR", previous.c_str(), 1) : ::unsetenv("TMPDIR");
    EXPECT_EQ(dir.entries(), std::vector<std::string>{"out.png"});
}

TEST_F(Export, AnEmptyBitmapIsRefusedBeforeTheDisk) {
    try {
        ImagePipeline::exportPNG(Bitmap{}, dir / "out.png");
        FAIL();
    } catch (const DocumentError& error) {
        EXPECT_EQ(error.code(), DocumentError::exportFailed);
    }
    EXPECT_TRUE(dir.entries().empty());
}
