// ErrorTextTest.cpp - catalogue lookups: exact texts, signs, gaps, whole ranges
#include "foundation/ErrorText.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string Text(int32_t code) {
    CNvcString out("this junk should be ignored");
    return ErrorText(code, out).GetData();
}

}  // namespace

// One or more rows of each family, with the marks, periods and misspelling
// that must survive as they are.
TEST(ErrorText, RowsReadByteForByteBehindThePrefix) {
    EXPECT_EQ(Text(0), "Error #0: Success");
    EXPECT_EQ(Text(354), "Error #354: Start mail input; end with <CRLF>.<CRLF>");
    EXPECT_EQ(Text(421), "Error #421: <domain> Service not available, closing transmission channel");
    EXPECT_EQ(Text(441), "Error #441: No connection to SMTP server established, please connect first");
    EXPECT_EQ(Text(500), "Error #500: Syntax error, command unrecognized (This may include errors such as "
              "command line too long)");
    EXPECT_EQ(Text(505), "Error #505: Client does not have permission to send as this sender; change the "
              "sender e-mail address");
    EXPECT_EQ(Text(554), "Error #554: Transaction failed");
    EXPECT_EQ(Text(590), "Error #590: Unexpected response from SMTP server");
    EXPECT_EQ(Text(592), "Error #592: Failed to send command");
    EXPECT_EQ(Text(1020), "Error #1020: Failed to create instance of object, out of memory.");
    EXPECT_EQ(Text(1102), "Error #1102: Invalid or no password entered");
    EXPECT_EQ(Text(10060), "Error #10060: A connection attempt failed because the connected party did not "
              "properly respond after a period of time, or established connection failed because "
              "connected host has failed to respond");
    EXPECT_EQ(Text(10061), "Error #10061: No connection could be made because the target machine actively "
              "refused it");
    EXPECT_EQ(Text(11001), "Error #11001: No such host is known");
    EXPECT_EQ(Text(11999), "Error #11999: General WSA error");
    EXPECT_EQ(Text(21994), "Error #21994: TCP operation stalled, aborted.");
    EXPECT_EQ(Text(22026), "Error #22026: Requested function not supported on this OS, or Dynamic Link "
              "Library is missing");
    EXPECT_EQ(Text(22051), "Error #22051: One ore more exported functions could not be found");
    EXPECT_EQ(Text(37405), "Error #37405: Unexpected response from server");
    EXPECT_EQ(Text(37436), "Error #37436: Failed to rename the queue file");
    EXPECT_EQ(Text(37614), "Error #37614: Decode attachment failed");
    EXPECT_EQ(Text(37705), "Error #37705: Could not open 'My' certificate store");
    EXPECT_EQ(Text(37708), "Error #37708: The secure connection was not initialized properly.");
    EXPECT_EQ(Text(37709), "Error #37709: EncryptMessage failure in SSPI module of the Operating System.");
    EXPECT_EQ(Text(37711), "Error #37711: Can not finish receiving and decrypting an incomplete message, there "
              "is not enough buffer space to hold the rest of the message.");
    EXPECT_EQ(Text(37713), "Error #37713: Timeout on receive data, reply from server expected");
}

TEST(ErrorText, SignCountsAndGapsReadGenericError) {
    const int32_t generic[] = {
        -1,    -421,  -550,  -2001, -10060, INT32_MIN, 1,     220,   250,   334,   555,
        593,   1000,  10005, 10072, 10090,  10094,     10100, 10113, 11000, 11016, 11998,
        21992, 22006, 37407, 37409, 37615,  37714,     INT32_MAX,
    };
    for (int32_t code : generic) {
        SCOPED_TRACE(code);
        EXPECT_EQ("Error #" + std::to_string(code) + ": Generic Error", Text(code));
    }
}

TEST(ErrorText, EveryWindowsSocketsNumberInItsRangesHasARow) {
    const int32_t ranges[][2] = {{10004, 10004}, {10009, 10009}, {10013, 10014}, {10022, 10022},
                                 {10024, 10024}, {10035, 10071}, {10091, 10093}, {10101, 10112},
                                 {11001, 11015}, {11999, 11999}};
    for (const auto& range : ranges)
        for (int32_t code = range[0]; code <= range[1]; ++code) {
            SCOPED_TRACE(code);
            const std::string text = Text(code);
            EXPECT_EQ(std::string::npos, text.find("Generic Error"));
            EXPECT_NE('.', text.back()) << "system texts are kept without their final period";
        }
}
