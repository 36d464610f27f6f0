// Zones as a recogniser misreads them, put right by their layout and check digits, and refused when
// no reading makes the digits agree.

#include "MachineZone.h"

#include <gtest/gtest.h>

namespace {

// ICAO 9303's specimen zones.
const std::vector<std::string> td3{"P<UTOERIKSSON<<ANNA<MARIA<<<<<<<<<<<<<<<<<<<",
                                   "L898902C36UTO7408122F1204159ZE184226B<<<<<10"};
const std::vector<std::string> td2{"I<UTOERIKSSON<<ANNA<MARIA<<<<<<<<<<<",
                                   "D231458907UTO7408122F1204159<<<<<<<6"};
const std::vector<std::string> td1{"I<UTOD231458907<<<<<<<<<<<<<<<", "7408122F1204159UTO<<<<<<<<<<<6",
                                   "ERIKSSON<<ANNA<MARIA<<<<<<<<<<"};

} // namespace

TEST(MachineZone, PrintedZonesOfEachLayoutComeBackUnchanged) {
    for (const auto& zone : {td3, td2, td1}) {
        EXPECT_EQ(MachineZone::corrected(zone), zone) << zone[0];
    }
}

TEST(MachineZone, LookAlikesTakeWhatTheirPositionAllows) {
    // The state code read with a zero, the birth date with an O and an S, a blank inside a line.
    auto read = td3;
    read[0] = "P<UT0ERIKSSON<<ANNA<MARIA<<<<<<<<<<<<<<<<<<<";
    read[1] = "L898902C36UTO74O8122F12041S9ZE184226B<<<<<10";
    EXPECT_EQ(MachineZone::corrected(read), td3);
    read = td2;
    read[1] = "D231458907UT0 7408122F1204159<<<<<<<6";
    EXPECT_EQ(MachineZone::corrected(read), td2);
}

TEST(MachineZone, ADocumentNumberLookAlikeIsSettledByItsCheckDigit) {
    // "D23I458907": only the reading with a one passes the check digit 7.
    auto read = td1;
    read[0] = "I<UTOD23I458907<<<<<<<<<<<<<<<";
    EXPECT_EQ(MachineZone::corrected(read), td1);
    // A number ending in a letter keeps it: "C3" in the TD3 specimen's "L898902C3".
    EXPECT_EQ(MachineZone::corrected(td3)->at(1).substr(0, 10), "L898902C36");
}

TEST(MachineZone, FillersReadShortOrLongAreBroughtToLength) {
    auto read = td3;
    read[0] = "P<UTOERIKSSON<<ANNA<MARIA<<<<<<<<<<<<<<<<";      // three fillers short
    read[1] = "L898902C36UTO7408122F1204159ZE184226B<<<<<<<10"; // two long, before the closing digits
    EXPECT_EQ(MachineZone::corrected(read), td3);
}

TEST(MachineZone, DigitsThatCannotAgreeAreNeverFixed) {
    auto read = td3;
    read[1] = "L898902C36UTO7408123F1204159ZE184226B<<<<<10"; // the birth date's check digit misread
    EXPECT_FALSE(MachineZone::corrected(read));
    read = td1;
    read[0] = "I<UTOD231458908<<<<<<<<<<<<<<<"; // the number's check digit itself misread
    EXPECT_FALSE(MachineZone::corrected(read));
    read = td2;
    read[1] = "D231458907UTO7408122F1204159<<<<<<<<<<<6"; // a checked line four characters long
    EXPECT_FALSE(MachineZone::corrected(read));
    // Not a zone at all.
    EXPECT_FALSE(MachineZone::corrected({"SURNAME MARTIN", "GIVEN NAMES CLAIRE"}));
}

TEST(MachineZone, TheZoneIsFoundAmongAPagesLines) {
    const auto found = MachineZone::find(
        {"PASSPORT", "SURNAME / NOM", "ERIKSSON", td3[0], "L898902C36UT07408122F1204159ZE184226B<<<<<10"});
    ASSERT_TRUE(found);
    EXPECT_EQ(found->first, 3u);
    EXPECT_TRUE(found->valid);
    EXPECT_EQ(found->lines, td3);
    // A run whose digits cannot agree is still found, as read, and not valid.
    const auto broken = MachineZone::find({td1[0], "7408122F1204158UTO<<<<<<<<<<<6", td1[2]});
    ASSERT_TRUE(broken);
    EXPECT_FALSE(broken->valid);
    EXPECT_EQ(broken->lines[1], "7408122F1204158UTO<<<<<<<<<<<6");
    EXPECT_FALSE(MachineZone::find({"UNITED KINGDOM", "PASSPORT"}));
}

TEST(MachineZone, TheHoldersValuesComeFromEachLayout) {
    const MachineZone::Holder passport = MachineZone::holder(td3);
    EXPECT_EQ(passport.numbers, (std::vector<std::string>{"L898902C3", "ZE184226B"}));
    EXPECT_EQ(passport.birth, "740812");
    EXPECT_EQ(passport.expiry, "120415");
    EXPECT_EQ(passport.names, (std::vector<std::string>{"ERIKSSON", "ANNA", "MARIA"}));
    const MachineZone::Holder card = MachineZone::holder(td1);
    EXPECT_EQ(card.numbers.front(), "D23145890");
    EXPECT_EQ(card.birth, "740812");
    EXPECT_EQ(card.names, passport.names);
    EXPECT_EQ(MachineZone::holder(td2).numbers.front(), "D23145890");
}

TEST(MachineZone, TheVisualPartRepeatsTheHoldersValues) {
    const MachineZone::Holder h = MachineZone::holder(td3);
    auto kind = [&](const char* line) { return MachineZone::repeated(h, line); };
    // Numbers, misread by a character or two, in Cyrillic or Greek look-alikes, behind a caption.
    for (const char* line :
         {"L898902C3", "L8989O2C3", "Passport No. L89B902C3", "ΖΕ 184226 В", "ZE 184226 8"}) {
        EXPECT_EQ(kind(line), FieldKind::number) << line;
    }
    // Dates in the usual forms; the issue date, which the zone does not hold, is not taken.
    for (const char* line :
         {"12 AUG/AOUT 74", "12 AUG /AOÛT 1974", "12.08.1974", "740812", "12081974", "1974-08-12"}) {
        EXPECT_EQ(kind(line), FieldKind::birthDate) << line;
    }
    EXPECT_EQ(kind("15 APR/AVR 12"), FieldKind::expiryDate);
    EXPECT_EQ(kind("16 APR/AVR 07"), std::nullopt);
    // A line of the holder's names, one letter misread in a long one; never a caption or another word.
    EXPECT_EQ(kind("ERIKSON, ANNA MARIA"), FieldKind::personName);
    EXPECT_EQ(kind("ANNA"), FieldKind::personName);
    for (const char* line : {"Name/ Nom", "ANNA BERG", "UTOPIA", "12 74", "L8989"}) {
        EXPECT_EQ(kind(line), std::nullopt) << line;
    }
}
