// NvMail.h - the message between the queue file and the wire
//
// Two forms side by side: fields (subject, sender, recipient lists, bodies,
// attachments) and one MIME tree held through a BkMime handle. Loading fills
// the fields from the tree of a file; Compose throws that tree away and builds
// a new one from the fields, so a stored header without a field never reaches
// the wire. The SMTP client reads m_fromAddress and the three lists directly,
// each address in its narrow form (GetAnsi), and sends GetMimeText after
// Compose.
//
// Input:       any stored message; LoadFromFile gives -2211 when it cannot be read.
// Diagnostics: Compose and Decode always give 0.
// Ownership:   every list entry is allocated by itself and owned by its list;
//              an attachment owns its BkMime part, the mail owns m_mime, which
//              is never null after construction.
// See also:    smtp/NvSmtp.h, mime/BkMime.h
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
};
