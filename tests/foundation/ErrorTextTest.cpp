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

TEST(ErrorText, RowsReadByteForByteBehindThePrefix) {
    struct Case {
        int32_t code;
        const char* want;
    } cases[] = {
        {0, "Error #0: Success"},
        {354, "Error #354: Start mail input; end with <CRLF>.<CRLF>"},
        {421, "Error #421: <domain> Service not available, closing transmission channel"},
        {441, "Error #441: No connection to SMTP server established, please connect first"},
        {450, "Error #450: Requested mail action not taken: mailbox unavailable (mailbox busy)"},
        {451, "Error #451: Requested action aborted: local error in processing"},
        {452, "Error #452: Requested action not taken: insufficient system storage"},
        {454, "Error #454: Client not authenticated, authentication required"},
        {500, "Error #500: Syntax error, command unrecognized (This may include errors such as "
              "command line too long)"},
        {501, "Error #501: Syntax error in parameters or arguments"},
        {502, "Error #502: Command not implemented"},
        {503, "Error #503: Bad sequence of commands"},
        {504, "Error #504: Command parameter not implemented"},
        {505, "Error #505: Client does not have permission to send as this sender; change the "
              "sender e-mail address"},
        {530, "Error #530: Please authenticate first"},
        {535, "Error #535: Authentication failed"},
        {550, "Error #550: Requested action not taken: mailbox unavailable (mailbox not found)"},
        {551, "Error #551: User not local; please try <forward-path>"},
        {552, "Error #552: Requested mail action aborted: exceeded storage allocation"},
        {553, "Error #553: Requested action not taken: mailbox name not allowed (mailbox syntax "
              "incorrect)"},
        {554, "Error #554: Transaction failed"},
        {590, "Error #590: Unexpected response from SMTP server"},
        {591, "Error #591: No response from SMTP server"},
        {592, "Error #592: Failed to send command"},
        {1010, "Error #1010: Creation of a new thread failed"},
        {1020, "Error #1020: Failed to create instance of object, out of memory."},
        {1030, "Error #1030: Exception error occurred, process has been terminated"},
        {1040, "Error #1040: Failed to allocate memory"},
        {1101, "Error #1101: Invalid or no account name entered"},
        {1102, "Error #1102: Invalid or no password entered"},
        {10060, "Error #10060: A connection attempt failed because the connected party did not "
                "properly respond after a period of time, or established connection failed because "
                "connected host has failed to respond"},
        {10061, "Error #10061: No connection could be made because the target machine actively "
                "refused it"},
        {11001, "Error #11001: No such host is known"},
        {11999, "Error #11999: General WSA error"},
        {21990, "Error #21990: No connections pending"},
        {21991, "Error #21991: Error while accepting a remote connection"},
        {21993, "Error #21993: Already connected"},
        {21994, "Error #21994: TCP operation stalled, aborted."},
        {21995, "Error #21995: TCP operation timed out"},
        {21996, "Error #21996: Remote party disconnected unexpectedly"},
        {21997, "Error #21997: Remote party disconnected"},
        {21998, "Error #21998: No active connection"},
        {21999, "Error #21999: Error during send"},
        {22000, "Error #22000: Invalid parameter"},
        {22001, "Error #22001: Buffer overflow"},
        {22002, "Error #22002: No more bytes in buffer"},
        {22003, "Error #22003: Listen failed"},
        {22004, "Error #22004: Must listen to be able to accept"},
        {22005, "Error #22005: Failed to allocate buffer memory"},
        {22019, "Error #22019: Invalid TCP port number"},
        {22020, "Error #22020: Invalid IP address"},
        {22021, "Error #22021: Invalid hostname"},
        {22022, "Error #22022: Unable to resolve hostname to IP-address"},
        {22023, "Error #22023: Unable to create a socket"},
        {22024, "Error #22024: Unable to connect to host"},
        {22025, "Error #22025: Socket Error occurred"},
        {22026, "Error #22026: Requested function not supported on this OS, or Dynamic Link "
                "Library is missing"},
        {22027, "Error #22027: Failed to create thread"},
        {22028, "Error #22028: Failed to stop thread"},
        {22051, "Error #22051: One ore more exported functions could not be found"},
        {37400, "Error #37400: Invalid hostname"},
        {37401, "Error #37401: Invalid port number"},
        {37402, "Error #37402: Connection failed"},
        {37403, "Error #37403: No response from server"},
        {37404, "Error #37404: Unexpected response from server"},
        {37405, "Error #37405: Unexpected response from server"},
        {37406, "Error #37406: Failed to introduce on the server"},
        {37408, "Error #37408: Failed to encrypt communication message"},
        {37410, "Error #37410: The selected mode of authorization is not supported"},
        {37411, "Error #37411: Authorization failed"},
        {37414, "Error #37414: Secure handshake failed"},
        {37435, "Error #37435: Failed to save the queue file"},
        {37436, "Error #37436: Failed to rename the queue file"},
        {37601, "Error #37601: Loading MIME data failed"},
        {37602, "Error #37602: Load MIME file failed"},
        {37603, "Error #37603: Save MIME file failed"},
        {37604, "Error #37604: Invalid attachment"},
        {37605, "Error #37605: Open attachment failed"},
        {37606, "Error #37606: Load attachment failed"},
        {37607, "Error #37607: Save attachment failed"},
        {37608, "Error #37608: Invalid FROM e-mail address"},
        {37609, "Error #37609: No TO recipients specified"},
        {37610, "Error #37610: Invalid TO e-mail address"},
        {37611, "Error #37611: Invalid CC e-mail address"},
        {37612, "Error #37612: Invalid BCC e-mail address"},
        {37613, "Error #37613: Invalid attachment ID"},
        {37614, "Error #37614: Decode attachment failed"},
        {37700, "Error #37700: Querying SChannel security context failed"},
        {37701, "Error #37701: Could not find the certificate chain"},
        {37702, "Error #37702: Failed to create new credentials"},
        {37703, "Error #37703: Server disconnected unexpectedly"},
        {37704, "Error #37704: Could not read from server"},
        {37705, "Error #37705: Could not open 'My' certificate store"},
        {37706, "Error #37706: Failed to initialize SChannel security context"},
        {37707, "Error #37707: Failed to allocate send/receive buffers"},
        {37708, "Error #37708: The secure connection was not initialized properly."},
        {37709, "Error #37709: EncryptMessage failure in SSPI module of the Operating System."},
        {37710, "Error #37710: DecryptMessage failure in SSPI module of the Operating System."},
        {37711, "Error #37711: Can not finish receiving and decrypting an incomplete message, there "
                "is not enough buffer space to hold the rest of the message."},
        {37712, "Error #37712: Cannot set secure when already connected"},
        {37713, "Error #37713: Timeout on receive data, reply from server expected"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.code);
        EXPECT_EQ(c.want, Text(c.code));
    }
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
