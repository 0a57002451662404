// NvMailDecode.cpp - a stored MIME tree reduced to the mail's fields
//
// See NvMail.h. Eight headers survive, and a tree of any shape becomes one
// plain body, one HTML body and a flat list of attachments.
#include <new>
#include <vector>

#include "mail/NvMail.h"
#include "mime/BkMime.h"
#include "platform/CodePage.h"

namespace {

// A body in the narrow form of the system code page, widened through that
// same page so that GetAnsi gives its bytes back.
void AssignAnsi(const char* ansi, CNvcStringW& out) {
    if (ansi == nullptr) ansi = "";
    const int units = platform::MultiByteToWideChar(platform::kCpAcp, ansi, -1, nullptr, 0);
    if (units < 1) {
        out.Assign(u"");
        return;
    }
    std::vector<char16_t> wide;
    try {
        wide.resize(static_cast<size_t>(units));
    } catch (const std::bad_alloc&) {
        out.Assign(u"");  // a body lost to memory; the mail still goes
        return;
    }
    platform::MultiByteToWideChar(platform::kCpAcp, ansi, -1, wide.data(), units);
    wide.back() = 0;
    out.Assign(wide.data());
}

void ReadWide(BkMime& mime, const char* name, CNvcStringW& out) {
    BkString field;
    mime.GetHeaderField(name, field);
    out.Assign(field.getUnicode());
}

CNvcString ReadUtf8(BkMime& mime, const char* name) {
    BkString field;
    mime.GetHeaderField(name, field);
    return CNvcString(field.getUtf8());
}

}  // namespace

int32_t CNvMail::Decode() {
    ReadWide(*m_mime, "Subject", m_subject);
    SplitFromText(ReadUtf8(*m_mime, "From").GetData(), m_fromName, m_fromAddress);
    ReplyToAddressOf(ReadUtf8(*m_mime, "Reply-To").GetData(), m_replyToAddress);
    ReadWide(*m_mime, "Disposition-Notification-To", m_receiptAddress);
    ReadWide(*m_mime, "Organization", m_organization);
    ReadAddressList("To", m_to);
    ReadAddressList("Cc", m_cc);
    ReadAddressList("Bcc", m_bcc);
    WalkPart(m_mime, 0);
    return 0;
}

void CNvMail::ReadAddressList(const char* headerName, std::vector<MailAddress*>& list) {
    AppendAddresses(ReadUtf8(*m_mime, headerName).GetData(), list);
}

bool CNvMail::WalkPart(BkMime* part, int depth) {
    if (part == nullptr || depth >= kMaxWalkDepth) return true;
    // Copied at once: the zero-terminated forms live in a ring of ten slots.
    const CNvcString contentType(part->contentType());
    const CNvcString fileName(part->filename());
    const CNvcString name(part->name());
    if (contentType.StartsWith("multipart", 0)) {
        // Every subtype is only a container here.
        WalkChildren(*part, depth);
        return true;
    }
    const bool unnamed = fileName.IsEmpty() && name.IsEmpty();
    if (contentType.StartsWith("text/html", 1) && unnamed) {
        AssignAnsi(part->getBodyDecoded(), m_htmlBody);
        return true;
    }
    // A root that is no multipart always ends as the plain body, whatever it is.
    if ((contentType.StartsWith("text/plain", 1) && unnamed) || depth == 0) {
        AssignAnsi(part->getBodyDecoded(), m_plainBody);
        return true;
    }
    MailAttachment* attachment = new MailAttachment;
    attachment->m_fileName = fileName.IsEmpty() ? name : fileName;
    attachment->m_contentType = contentType;
    attachment->m_part = part;
    m_attachments.push_back(attachment);
    return false;
}

void CNvMail::WalkChildren(BkMime& part, int depth) {
    const int32_t count = part.NumParts();
    for (int32_t index = 0; index < count; ++index) {
        BkMime* child = part.GetPart(index);
        if (child == nullptr) continue;
        if (WalkPart(child, depth + 1)) delete child;
    }
}
