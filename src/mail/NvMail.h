// NvMail.h - the message between the queue file and the wire
//
// Two forms side by side: fields (subject, sender, recipient lists, bodies,
// attachments) and one MIME tree held through a BkMime handle. Loading fills
// the fields from the tree of a file; Compose throws that tree away and builds
// a new one from the fields, so a stored header without a field never reaches
// the wire. The SMTP client reads m_fromAddress and the three lists directly,
// each address in its narrow form (GetAnsi), and sends the text of
// GetMimeText (ComposedText, without the copy) after Compose.
//
// Input:       any stored message; LoadFromFile gives -2211 when it cannot be read.
//              Address headers are split on commas outside double quotes, with no
//              escapes and no check that the quotes balance.
// Diagnostics: Compose and Decode always give 0; nothing is traced.
// Ownership:   every list entry is allocated by itself and owned by its list;
//              an attachment owns its BkMime part, the mail owns m_mime, which
//              is never null after construction. An attachment part keeps the
//              tree of its file alive after the mail has let go of it.
// Limits:      the walk of a stored tree stops at depth 5 (the root is 0).
// Known gaps:  bodies pass through the system code page, so characters outside
//              it are lost on load; a zero byte ends a body.
// See also:    NvMailAddress.cpp, NvMailDecode.cpp, NvMailCompose.cpp,
//              NvMailText.cpp, smtp/NvSmtp.h, mime/BkMime.h
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "foundation/NvcBase.h"
#include "foundation/NvcString.h"
#include "foundation/NvcStringW.h"

class BkMime;

struct MailAddress {
    CNvcStringW m_name;
    CNvcStringW m_address;
};

struct MailAttachment {
    CNvcString m_fileName;
    CNvcString m_contentType;
    BkMime* m_part = nullptr;  // owned
};

class CNvMail : public CNvcBase {
public:
    static constexpr int32_t kLoadFailed = -2211;
    // Text classes of ClassifyText; an 8-bit text gives the system code page.
    static constexpr int32_t kClassAscii = 20127;
    static constexpr int32_t kClassUnicode = 1200;
    // Nodes at this depth and below are not looked at by the walk.
    static constexpr int kMaxWalkDepth = 5;

    explicit CNvMail(const char* name);
    ~CNvMail() override;
    CNvMail(const CNvMail&) = delete;
    CNvMail& operator=(const CNvMail&) = delete;

    virtual int32_t Compose();
    virtual int32_t Decode();

    void Clear();
    // 0, or -2211 when the file cannot be loaded.
    int32_t LoadFromFile(const char* path);
    // The decoded field of the current tree in the system code page; "" when missing.
    void GetHeader(const char* name, CNvcString& out);
    // Drops the custom header of exactly that name; nothing when there is none.
    void RemoveHeader(const char* name);
    // The current tree as text, up to its first zero byte.
    void GetMimeText(CNvcString& out);
    // The text GetMimeText copies, in place: a pointer into the tree's ring of
    // results, valid until ten more such calls on it. The SMTP client sends
    // from here so that a large message is not held twice.
    const char* ComposedText();

    // For building a mail in memory; the service itself never calls these.
    void SetPriority(int32_t priority) { m_priority = priority; }
    void SetCodePage(int32_t codePage) { m_codePage = codePage; }
    void SetXMailer(const char* text) { m_xMailer.Assign(text); }
    // Adds or replaces the custom header `name` (ASCII) with `text`.
    void SetCustomHeader(const char* name, const char16_t* text);

    // Loading (NvMailDecode.cpp, NvMailAddress.cpp).
    void ReadAddressList(const char* headerName, std::vector<MailAddress*>& list);
    // True when the caller may delete `part`, false when an attachment took it.
    bool WalkPart(BkMime* part, int depth);
    // Pieces between commas outside double quotes; the quotes are dropped.
    static void SplitAddressList(const char* text, std::vector<CNvcString>& out);
    // Appends one entry per non-empty piece of a UTF-8 address header text.
    static void AppendAddresses(const char* text, std::vector<MailAddress*>& list);
    // The From rule: a display name and an address out of a UTF-8 header text.
    static void SplitFromText(const char* text, CNvcStringW& name, CNvcStringW& address);
    // The Reply-To rule: the address alone; any name is dropped.
    static void ReplyToAddressOf(const char* text, CNvcStringW& address);

    // Composing (NvMailCompose.cpp, NvMailText.cpp).
    void EncodeHeaderText(CNvcStringW& text, CNvcString& out, bool quoted);
    void FormatAddressList(std::vector<MailAddress*>& list, CNvcString& out);
    void SetPartText(BkMime& part, CNvcStringW& text, const char* mediaType);
    // 20127, 1200 or the system code page, by the widest character of `text`.
    static int32_t ClassifyText(const char16_t* text);
    // "Mon, 3 Feb 2025 14:05:09 +0100\r\n" in local time, English names.
    static void FormatDateHeader(CNvcString& out);
    // The X-Priority and X-MSMail-Priority values of a priority.
    static void PriorityTexts(int32_t priority, const char*& xPriority, const char*& msMail);
    // Four draws of the runtime's rand sequence: "%08X%08X==".
    static void MakeBoundaryBase(CNvcString& out);
    // "--==%03X_" with the counter, then the base.
    static void FormatBoundary(int32_t counter, const CNvcString& base, CNvcString& out);

    CNvcString m_xMailer;
    CNvcStringW m_subject;
    CNvcStringW m_plainBody;
    CNvcStringW m_htmlBody;
    CNvcStringW m_fromName;
    CNvcStringW m_fromAddress;
    CNvcStringW m_replyToAddress;
    CNvcStringW m_receiptAddress;
    CNvcStringW m_organization;
    std::vector<MailAddress*> m_to;
    std::vector<MailAddress*> m_cc;
    std::vector<MailAddress*> m_bcc;
    int32_t m_codePage = 0;
    int32_t m_priority = 3;
    std::vector<MailAttachment*> m_attachments;
    // Keyed byte by byte; each value is the header's name and text.
    std::map<std::string, MailAddress*> m_customHeaders;
    BkMime* m_mime = nullptr;
    CNvcString m_boundaryBase;
    int32_t m_boundaryCounter = 0;

private:
    void ReplaceTree();
    void AddComposedHeaders();
    void AddSenderHeaders();
    void AddPriorityHeaders();
    void AddCustomHeaders();
    void BuildBody();
    void NextBoundary(CNvcString& out);
    void AppendTextPart(BkMime& parent, CNvcStringW& text, const char* mediaType);
    void WalkChildren(BkMime& part, int depth);
    long SystemTextPage() const;
};

// The charset name of a code page: a fixed name for 50221, else the
// registry's MIME database under HKEY_CLASSES_ROOT (BodyCharset, then
// WebCharset), else the engine's canonical name; "" when none is known.
CNvcString& GetCharsetName(long codePage, CNvcString& out);
