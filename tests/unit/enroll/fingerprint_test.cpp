#include "enroll/fingerprint.h"

#include <gtest/gtest.h>

using enroll::parseFingerprint;

namespace {

const std::string DIGITS = "00112233445566778899aabbccddeeff00112233445566778899aabbccddeeff";

std::string withColons(const std::string& digits)
{
    std::string text;
    for (std::size_t i = 0; i < digits.size(); i += 2)
        text += (i == 0 ? "" : ":") + digits.substr(i, 2);
    return text;
}

} // namespace

TEST(ParseFingerprint, TakesDigitsInEitherCaseWithAndWithoutColons)
{
    const std::string upper = "00112233445566778899AABBCCDDEEFF00112233445566778899AABBCCDDEEFF";
    EXPECT_EQ(parseFingerprint(DIGITS), DIGITS);
    EXPECT_EQ(parseFingerprint(upper), DIGITS);
    EXPECT_EQ(parseFingerprint(withColons(DIGITS)), DIGITS);
    EXPECT_EQ(parseFingerprint(withColons(upper)), DIGITS);
}

TEST(ParseFingerprint, RefusesEverythingElse)
{
    std::string wrongDigit = DIGITS;
    wrongDigit[5] = 'g';
    std::string movedColon = withColons(DIGITS);
    std::swap(movedColon[2], movedColon[3]);
    const std::string refused[] = {"",
                                   "00",
                                   DIGITS.substr(1),
                                   DIGITS + "0",
                                   wrongDigit,
                                   movedColon,
                                   ":" + withColons(DIGITS).substr(1),
                                   " " + DIGITS.substr(1),
                                   withColons(DIGITS) + ":",
                                   std::string(64, '\0'),
                                   std::string(95, ':')};
    for (const std::string& text : refused)
        EXPECT_FALSE(parseFingerprint(text)) << text;
}
