// NvMailCompose.cpp - a new MIME tree built from the mail's fields
//
// See NvMail.h. The tree of the file is dropped first, so only what has a
// field (and the attachment parts, appended as they are) reaches the wire;
// the control headers of a queue file are left behind that way.
#include <cstring>

#include "foundation/NvcBase64.h"
#include "mail/NvMail.h"
#include "mime/BkMime.h"
#include "platform/CodePage.h"

namespace {

constexpr int32_t kShiftJis = 932;
constexpr int32_t kIso2022Jp = 50220;

// GetAnsi, or "" when memory failed.
const char* Ansi(CNvcStringW& text) {
    const char* ansi = text.GetAnsi();
    return ansi == nullptr ? "" : ansi;
}

bool IsSet(const CNvcStringW& text) {
    return text.GetLength() > 0;
}

void Base64(const char* bytes, size_t length, CNvcString& out) {
    CNvcBase64 codec;
    codec.Encode(bytes, length, out);
}

}  // namespace

int32_t CNvMail::Compose() {
    ReplaceTree();
    // Japanese text is labelled for the 7-bit mail form of its code page.
    if (m_codePage == kShiftJis) m_codePage = kIso2022Jp;
    AddComposedHeaders();
    m_boundaryCounter = 0;
    MakeBoundaryBase(m_boundaryBase);
    BuildBody();
    return 0;
}

void CNvMail::AddComposedHeaders() {
    AddSenderHeaders();
    CNvcString value;
    const struct {
        const char* name;
        std::vector<MailAddress*>* list;
    } lists[] = {{"To", &m_to}, {"Cc", &m_cc}, {"Bcc", &m_bcc}};
    for (const auto& entry : lists) {
        if (entry.list->empty()) continue;
        // Bcc goes out as a header too: every reader of the mail sees it.
        FormatAddressList(*entry.list, value);
        m_mime->AddHeaderField(entry.name, value.GetData());
    }
    if (IsSet(m_subject)) {
        EncodeHeaderText(m_subject, value, false);
        m_mime->AddHeaderField("Subject", value.GetData());
    }
    FormatDateHeader(value);
    m_mime->AddHeaderField("Date", value.GetData());
    if (IsSet(m_organization)) {
        EncodeHeaderText(m_organization, value, false);
        m_mime->AddHeaderField("Organization", value.GetData());
    }
    m_mime->AddHeaderField("MIME-Version", "1.0");
    AddPriorityHeaders();
    if (!m_xMailer.IsEmpty()) m_mime->AddHeaderField("X-Mailer", m_xMailer.GetData());
    if (IsSet(m_receiptAddress))
        m_mime->AddHeaderField("Disposition-Notification-To", Ansi(m_receiptAddress));
    AddCustomHeaders();
}

void CNvMail::AddSenderHeaders() {
    CNvcString name;
    CNvcString value;
    if (IsSet(m_replyToAddress)) {
        value.Format("<%s>", Ansi(m_replyToAddress));
    } else {
        // Without a Reply-To the From pair stands in, quoted name and all,
        // even when the name is empty ("" <address>).
        EncodeHeaderText(m_fromName, name, true);
        value.Format("%s <%s>", name.GetData(), Ansi(m_fromAddress));
    }
    m_mime->AddHeaderField("Reply-To", value.GetData());
    if (IsSet(m_fromName)) {
        EncodeHeaderText(m_fromName, name, true);
        value.Format("%s <%s>", name.GetData(), Ansi(m_fromAddress));
    } else {
        value.Format("<%s>", Ansi(m_fromAddress));
    }
    m_mime->AddHeaderField("From", value.GetData());
}

void CNvMail::AddPriorityHeaders() {
    const char* xPriority = nullptr;
    const char* msMail = nullptr;
    PriorityTexts(m_priority, xPriority, msMail);
    m_mime->AddHeaderField("X-Priority", xPriority);
    m_mime->AddHeaderField("X-MSMail-Priority", msMail);
}

void CNvMail::AddCustomHeaders() {
    for (auto& header : m_customHeaders) {
        MailAddress& pair = *header.second;
        m_mime->AddHeaderField(Ansi(pair.m_name), Ansi(pair.m_address));
    }
}

void CNvMail::NextBoundary(CNvcString& out) {
    ++m_boundaryCounter;
    FormatBoundary(m_boundaryCounter, m_boundaryBase, out);
}

void CNvMail::BuildBody() {
    CNvcString first;
    NextBoundary(first);  // made in every case, used or not
    const bool hasAttachments = !m_attachments.empty();
    const bool hasHtml = IsSet(m_htmlBody);
    const bool hasPlain = IsSet(m_plainBody);
    if (!hasAttachments) {
        if (hasPlain && hasHtml) {
            m_mime->SetContentType("multipart/alternative");
            m_mime->SetBoundary(first.GetData());
            AppendTextPart(*m_mime, m_plainBody, "text/plain");
            AppendTextPart(*m_mime, m_htmlBody, "text/html");
        } else if (hasPlain) {
            SetPartText(*m_mime, m_plainBody, "text/plain");
        } else if (hasHtml) {
            SetPartText(*m_mime, m_htmlBody, "text/html");
        }
        return;
    }
    m_mime->SetContentType("multipart/mixed");
    m_mime->SetBoundary(first.GetData());
    if (hasPlain && hasHtml) {
        BkMime alternative;
        CNvcString second;
        NextBoundary(second);
        alternative.SetContentType("multipart/alternative");
        alternative.SetBoundary(second.GetData());
        AppendTextPart(alternative, m_plainBody, "text/plain");
        AppendTextPart(alternative, m_htmlBody, "text/html");
        m_mime->AppendPart(&alternative);
    } else if (hasPlain) {
        AppendTextPart(*m_mime, m_plainBody, "text/plain");
    } else if (hasHtml) {
        AppendTextPart(*m_mime, m_htmlBody, "text/html");
    }
    // Copied in with their own headers and encoded bodies, not decoded.
    for (MailAttachment* attachment : m_attachments) m_mime->AppendPart(attachment->m_part);
}

void CNvMail::AppendTextPart(BkMime& parent, CNvcStringW& text, const char* mediaType) {
    BkMime part;
    SetPartText(part, text, mediaType);
    parent.AppendPart(&part);
}

long CNvMail::SystemTextPage() const {
    // The member relabels 8-bit text; the bytes stay those of the system
    // code page whatever it says.
    return m_codePage != 0 ? m_codePage : static_cast<long>(platform::GetACP());
}

void CNvMail::EncodeHeaderText(CNvcStringW& text, CNvcString& out, bool quoted) {
    CNvcString word;
    const int32_t textClass = ClassifyText(text.GetData());
    CNvcString encoded;
    if (textClass == kClassAscii) {
        word.Assign(Ansi(text));
    } else if (textClass == kClassUnicode) {
        CNvcString utf8;
        WideToUtf8(text.GetData(), utf8);
        Base64(utf8.GetData(), utf8.GetLength(), encoded);
        word.Format("=?utf-8?B?%s?=", encoded.GetData());
    } else {
        const char* ansi = Ansi(text);
        Base64(ansi, std::strlen(ansi), encoded);
        CNvcString charset;
        GetCharsetName(SystemTextPage(), charset);
        word.Format("=?%s?B?%s?=", charset.GetData(), encoded.GetData());
    }
    // Nothing inside the quotes is escaped; a name is quoted even when empty.
    if (quoted)
        out.Format("\"%s\"", word.GetData());
    else
        out.Assign(word);
}

void CNvMail::FormatAddressList(std::vector<MailAddress*>& list, CNvcString& out) {
    out.Clear();
    CNvcString name;
    CNvcString entryText;
    for (size_t index = 0; index < list.size(); ++index) {
        MailAddress& entry = *list[index];
        if (IsSet(entry.m_name)) {
            EncodeHeaderText(entry.m_name, name, true);
            entryText.Format("%s <%s>", name.GetData(), Ansi(entry.m_address));
        } else {
            entryText.Format("<%s>", Ansi(entry.m_address));
        }
        out.Append(entryText);
        if (index + 1 < list.size()) out.Append(',');
        out.Append(' ');  // the last one falls to the header's trim
    }
}

void CNvMail::SetPartText(BkMime& part, CNvcStringW& text, const char* mediaType) {
    CNvcString contentType(mediaType);
    const char* encoding = "base64";
    BkByteData bytes;
    const int32_t textClass = ClassifyText(text.GetData());
    if (textClass == kClassAscii) {
        part.SetBody(Ansi(text));
        encoding = "7bit";
    } else if (textClass == kClassUnicode) {
        CNvcString utf8;
        WideToUtf8(text.GetData(), utf8);
        contentType.Append(";charset=utf-8");
        bytes.append(utf8.GetData(), static_cast<uint32_t>(utf8.GetLength()));
        part.SetBodyFromBinary(bytes);
    } else {
        CNvcString charset;
        GetCharsetName(SystemTextPage(), charset);
        contentType.Append(";charset=").Append(charset);
        const char* ansi = Ansi(text);
        bytes.append(ansi, static_cast<uint32_t>(std::strlen(ansi)));
        part.SetBodyFromBinary(bytes);
    }
    part.SetContentType(contentType.GetData());
    part.SetEncoding(encoding);
}
