// ErrorText.cpp - the text of a result code for the result log
//
// See ErrorText.h
#include "foundation/ErrorText.h"

#include <algorithm>
#include <iterator>

namespace {

struct ErrorRow {
    int32_t code;
    const char* text;
};

// Sorted by code for the binary search below (checked at compile time).
constexpr ErrorRow kRows[] = {
    // General
    {0, "Success"},
    // SMTP replies; 441 and 590 to 592 are the client's own.
    {354, "Start mail input; end with <CRLF>.<CRLF>"},
    {421, "<domain> Service not available, closing transmission channel"},
    {441, "No connection to SMTP server established, please connect first"},
    {450, "Requested mail action not taken: mailbox unavailable (mailbox busy)"},
    {451, "Requested action aborted: local error in processing"},
    {452, "Requested action not taken: insufficient system storage"},
    {454, "Client not authenticated, authentication required"},
    {500, "Syntax error, command unrecognized (This may include errors such as command line too long)"},
    {501, "Syntax error in parameters or arguments"},
    {502, "Command not implemented"},
    {503, "Bad sequence of commands"},
    {504, "Command parameter not implemented"},
    {505, "Client does not have permission to send as this sender; change the sender e-mail address"},
    {530, "Please authenticate first"},
    {535, "Authentication failed"},
    {550, "Requested action not taken: mailbox unavailable (mailbox not found)"},
    {551, "User not local; please try <forward-path>"},
    {552, "Requested mail action aborted: exceeded storage allocation"},
    {553, "Requested action not taken: mailbox name not allowed (mailbox syntax incorrect)"},
    {554, "Transaction failed"},
    {590, "Unexpected response from SMTP server"},
    {591, "No response from SMTP server"},
    {592, "Failed to send command"},
    // General, continued
    {1010, "Creation of a new thread failed"},
    {1020, "Failed to create instance of object, out of memory."},
    {1030, "Exception error occurred, process has been terminated"},
    {1040, "Failed to allocate memory"},
    {1101, "Invalid or no account name entered"},
    {1102, "Invalid or no password entered"},
    // Windows Sockets
    {10004, "A blocking operation was interrupted by a call to WSACancelBlockingCall"},
    {10009, "The file handle supplied is not valid"},
    {10013, "An attempt was made to access a socket in a way forbidden by its access permissions"},
    {10014, "The system detected an invalid pointer address in attempting to use a pointer argument in a call"},
    {10022, "An invalid argument was supplied"},
    {10024, "Too many open sockets"},
    {10035, "A non-blocking socket operation could not be completed immediately"},
    {10036, "A blocking operation is currently executing"},
    {10037, "An operation was attempted on a non-blocking socket that already had an operation in progress"},
    {10038, "An operation was attempted on something that is not a socket"},
    {10039, "A required address was omitted from an operation on a socket"},
    {10040, "A message sent on a datagram socket was larger than the internal message buffer or some "
            "other network limit, or the buffer used to receive a datagram into was smaller than the "
            "datagram itself"},
    {10041, "A protocol was specified in the socket function call that does not support the semantics "
            "of the socket type requested"},
    {10042, "An unknown, invalid, or unsupported option or level was specified in a getsockopt or "
            "setsockopt call"},
    {10043, "The requested protocol has not been configured into the system, or no implementation for "
            "it exists"},
    {10044, "The support for the specified socket type does not exist in this address family"},
    {10045, "The attempted operation is not supported for the type of object referenced"},
    {10046, "The protocol family has not been configured into the system or no implementation for it "
            "exists"},
    {10047, "An address incompatible with the requested protocol was used"},
    {10048, "Only one usage of each socket address (protocol/network address/port) is normally permitted"},
    {10049, "The requested address is not valid in its context"},
    {10050, "A socket operation encountered a dead network"},
    {10051, "A socket operation was attempted to an unreachable network"},
    {10052, "The connection has been broken due to keep-alive activity detecting a failure while the "
            "operation was in progress"},
    {10053, "An established connection was aborted by the software in your host machine"},
    {10054, "An existing connection was forcibly closed by the remote host"},
    {10055, "An operation on a socket could not be performed because the system lacked sufficient "
            "buffer space or because a queue was full"},
    {10056, "A connect request was made on an already connected socket"},
    {10057, "A request to send or receive data was disallowed because the socket is not connected and "
            "(when sending on a datagram socket using a sendto call) no address was supplied"},
    {10058, "A request to send or receive data was disallowed because the socket had already been shut "
            "down in that direction with a previous shutdown call"},
    {10059, "Too many references to some kernel object"},
    {10060, "A connection attempt failed because the connected party did not properly respond after a "
            "period of time, or established connection failed because connected host has failed to "
            "respond"},
    {10061, "No connection could be made because the target machine actively refused it"},
    {10062, "Cannot translate name"},
    {10063, "Name component or name was too long"},
    {10064, "A socket operation failed because the destination host was down"},
    {10065, "A socket operation was attempted to an unreachable host"},
    {10066, "Cannot remove a directory that is not empty"},
    {10067, "A Windows Sockets implementation may have a limit on the number of applications that may "
            "use it simultaneously"},
    {10068, "Ran out of quota"},
    {10069, "Ran out of disk quota"},
    {10070, "File handle reference is no longer available"},
    {10071, "Item is not available locally"},
    {10091, "WSAStartup cannot function at this time because the underlying system it uses to provide "
            "network services is currently unavailable"},
    {10092, "The Windows Sockets version requested is not supported"},
    {10093, "Either the application has not called WSAStartup, or WSAStartup failed"},
    {10101, "Returned by WSARecv or WSARecvFrom to indicate the remote party has initiated a graceful "
            "shutdown sequence"},
    {10102, "No more results can be returned by WSALookupServiceNext"},
    {10103, "A call to WSALookupServiceEnd was made while this call was still processing. The call has "
            "been canceled"},
    {10104, "The procedure call table is invalid"},
    {10105, "The requested service provider is invalid"},
    {10106, "The requested service provider could not be loaded or initialized"},
    {10107, "A system call that should never fail has failed"},
    {10108, "No such service is known. The service cannot be found in the specified name space"},
    {10109, "The specified class was not found"},
    {10110, "No more results can be returned by WSALookupServiceNext"},
    {10111, "A call to WSALookupServiceEnd was made while this call was still processing. The call has "
            "been canceled"},
    {10112, "A database query failed because it was actively refused"},
    {11001, "No such host is known"},
    {11002, "This is usually a temporary error during hostname resolution and means that the local "
            "server did not receive a response from an authoritative server"},
    {11003, "A non-recoverable error occurred during a database lookup"},
    {11004, "The requested name is valid, but no data of the requested type was found"},
    {11005, "At least one reserve has arrived"},
    {11006, "At least one path has arrived"},
    {11007, "There are no senders"},
    {11008, "There are no receivers"},
    {11009, "Reserve has been confirmed"},
    {11010, "Error due to lack of resources"},
    {11011, "Rejected for administrative reasons - bad credentials"},
    {11012, "Unknown or conflicting style"},
    {11013, "Problem with some part of the filterspec or providerspecific buffer in general"},
    {11014, "Problem with some part of the flowspec"},
    {11015, "General QOS error"},
    {11999, "General WSA error"},
    // Generic TCP
    {21990, "No connections pending"},
    {21991, "Error while accepting a remote connection"},
    {21993, "Already connected"},
    {21994, "TCP operation stalled, aborted."},
    {21995, "TCP operation timed out"},
    {21996, "Remote party disconnected unexpectedly"},
    {21997, "Remote party disconnected"},
    {21998, "No active connection"},
    {21999, "Error during send"},
    {22000, "Invalid parameter"},
    {22001, "Buffer overflow"},
    {22002, "No more bytes in buffer"},
    {22003, "Listen failed"},
    {22004, "Must listen to be able to accept"},
    {22005, "Failed to allocate buffer memory"},
    {22019, "Invalid TCP port number"},
    {22020, "Invalid IP address"},
    {22021, "Invalid hostname"},
    {22022, "Unable to resolve hostname to IP-address"},
    {22023, "Unable to create a socket"},
    {22024, "Unable to connect to host"},
    {22025, "Socket Error occurred"},
    {22026, "Requested function not supported on this OS, or Dynamic Link Library is missing"},
    {22027, "Failed to create thread"},
    {22028, "Failed to stop thread"},
    {22051, "One ore more exported functions could not be found"},  // kept: the wording is fixed
    // Mail sending and queue
    {37400, "Invalid hostname"},
    {37401, "Invalid port number"},
    {37402, "Connection failed"},
    {37403, "No response from server"},
    {37404, "Unexpected response from server"},
    {37405, "Unexpected response from server"},
    {37406, "Failed to introduce on the server"},
    {37408, "Failed to encrypt communication message"},
    {37410, "The selected mode of authorization is not supported"},
    {37411, "Authorization failed"},
    {37414, "Secure handshake failed"},
    {37435, "Failed to save the queue file"},
    {37436, "Failed to rename the queue file"},
    // Mail object
    {37601, "Loading MIME data failed"},
    {37602, "Load MIME file failed"},
    {37603, "Save MIME file failed"},
    {37604, "Invalid attachment"},
    {37605, "Open attachment failed"},
    {37606, "Load attachment failed"},
    {37607, "Save attachment failed"},
    {37608, "Invalid FROM e-mail address"},
    {37609, "No TO recipients specified"},
    {37610, "Invalid TO e-mail address"},
    {37611, "Invalid CC e-mail address"},
    {37612, "Invalid BCC e-mail address"},
    {37613, "Invalid attachment ID"},
    {37614, "Decode attachment failed"},
    // Secure channel
    {37700, "Querying SChannel security context failed"},
    {37701, "Could not find the certificate chain"},
    {37702, "Failed to create new credentials"},
    {37703, "Server disconnected unexpectedly"},
    {37704, "Could not read from server"},
    {37705, "Could not open 'My' certificate store"},
    {37706, "Failed to initialize SChannel security context"},
    {37707, "Failed to allocate send/receive buffers"},
    {37708, "The secure connection was not initialized properly."},
    {37709, "EncryptMessage failure in SSPI module of the Operating System."},
    {37710, "DecryptMessage failure in SSPI module of the Operating System."},
    {37711, "Can not finish receiving and decrypting an incomplete message, there is not enough buffer "
            "space to hold the rest of the message."},
    {37712, "Cannot set secure when already connected"},
    {37713, "Timeout on receive data, reply from server expected"},
};

constexpr bool IsSorted() {
    for (size_t i = 1; i < std::size(kRows); ++i)
        if (kRows[i - 1].code >= kRows[i].code) return false;
    return true;
}
static_assert(IsSorted(), "error rows must be sorted by code, each code once");

const char* TextOf(int32_t code) {
    const ErrorRow* end = std::end(kRows);
    const ErrorRow* row = std::lower_bound(std::begin(kRows), end, code,
                                           [](const ErrorRow& r, int32_t c) { return r.code < c; });
    return row != end && row->code == code ? row->text : "Generic Error";
}

}  // namespace

CNvcString& ErrorText(int32_t code, CNvcString& out) {
    out.FormatShort("Error #%ld: ", static_cast<long>(code));
    return out.Append(TextOf(code));
}
