// NvMailAddress.cpp - address headers of a stored message into names and addresses
//
// See NvMail.h. The rules are deliberately simple-minded: a token split on
// blanks, angle brackets and quotes stripped at the ends. Receivers of our
// queue files rely on exactly this reading, so it is kept as it is, quirks
// included (a name with two blanks in a row, a blank left at the end of a
// display name, an encoded name holding a comma that splits in two).
#include "mail/NvMail.h"

#include <string>

namespace {

// The last blank-separated token. The count stops at the first empty token,
// so after two blanks in a row the "last" token is the word before them.
CNvcString LastToken(CNvcString& text) {
    CNvcString token;
    text.GetToken(" ", "", token, text.GetTokenCount(" ") - 1);
    return token;
}

// One leading "<" and every trailing ">".
void StripAngles(CNvcString& text) {
    text.RemovePrefix("<");
    text.RemoveSuffix(">");
}

// One leading double quote and every trailing one.
void StripQuotes(CNvcString& text) {
    text.RemovePrefix("\"");
    text.RemoveSuffix("\"");
}

bool HasBlank(const CNvcString& text) {
    return text.Contains(" ", 1) != 0;
}

// One trimmed piece of a recipient header into `entry`.
void ParseAddressPiece(CNvcString& piece, MailAddress& entry) {
    piece.Trim();
    if (!HasBlank(piece)) {
        StripAngles(piece);
        Utf8ToWide(piece.GetData(), entry.m_address);
        return;
    }
    CNvcString token = LastToken(piece);
    piece.Replace(token.GetData(), "", 0);
    StripAngles(token);
    Utf8ToWide(token.GetData(), entry.m_address);
    // The blank before the address stays at the end of the name on purpose.
    StripQuotes(piece);
    Utf8ToWide(piece.GetData(), entry.m_name);
}

}  // namespace

void CNvMail::SplitAddressList(const char* text, std::vector<CNvcString>& out) {
    if (text == nullptr) return;
    bool inQuotes = false;
    std::string piece;
    for (const char* p = text; *p != '\0'; ++p) {
        if (*p == '"') {
            inQuotes = !inQuotes;
            continue;
        }
        if (*p == ',' && !inQuotes) {
            out.emplace_back(piece.c_str());  // empty pieces too; the reader skips them
            piece.clear();
            continue;
        }
        piece += *p;
    }
    if (!piece.empty()) out.emplace_back(piece.c_str());
}

void CNvMail::AppendAddresses(const char* text, std::vector<MailAddress*>& list) {
    std::vector<CNvcString> pieces;
    SplitAddressList(text, pieces);
    for (CNvcString& piece : pieces) {
        if (piece.IsEmpty()) continue;
        // A piece of blanks alone still gives an entry, with an empty address.
        MailAddress* entry = new MailAddress;
        ParseAddressPiece(piece, *entry);
        list.push_back(entry);
    }
}

void CNvMail::SplitFromText(const char* text, CNvcStringW& name, CNvcStringW& address) {
    CNvcString from(text);
    if (!HasBlank(from)) {
        StripAngles(from);
        Utf8ToWide(from.GetData(), address);
        return;
    }
    CNvcString token = LastToken(from);
    if (token.IsEmpty()) return;
    from.Replace(token.GetData(), "", 1);
    StripAngles(token);
    Utf8ToWide(token.GetData(), address);
    from.Trim();
    StripQuotes(from);
    Utf8ToWide(from.GetData(), name);
}

void CNvMail::ReplyToAddressOf(const char* text, CNvcStringW& address) {
    CNvcString replyTo(text);
    CNvcString token = HasBlank(replyTo) ? LastToken(replyTo) : replyTo;
    StripAngles(token);
    Utf8ToWide(token.GetData(), address);
}
