// NvMail.cpp - life of the mail object: construction, Clear, load, tree access
//
// See NvMail.h.
#include "mail/NvMail.h"

#include "mime/BkMime.h"

namespace {

void DeleteAddresses(std::vector<MailAddress*>& list) {
    for (MailAddress*& entry : list) {
        delete entry;
        entry = nullptr;
    }
    list.clear();
}

}  // namespace

CNvMail::CNvMail(const char* name) : CNvcBase(name), m_mime(new BkMime()) {
    Clear();
}

CNvMail::~CNvMail() {
    Clear();
    delete m_mime;
    m_mime = nullptr;
}

void CNvMail::ReplaceTree() {
    // The attachment parts keep their own handles, so the old tree lives on
    // for them.
    delete m_mime;
    m_mime = nullptr;
    m_mime = new BkMime();
}

void CNvMail::Clear() {
    ReplaceTree();
    m_boundaryCounter = 0;
    m_priority = 3;
    m_codePage = 0;
    for (CNvcStringW* text : {&m_subject, &m_plainBody, &m_htmlBody, &m_fromName, &m_fromAddress,
                              &m_replyToAddress, &m_receiptAddress, &m_organization})
        text->Assign(u"");
    DeleteAddresses(m_to);
    DeleteAddresses(m_cc);
    DeleteAddresses(m_bcc);
    for (MailAttachment*& attachment : m_attachments) {
        delete attachment->m_part;
        attachment->m_part = nullptr;
        delete attachment;
        attachment = nullptr;
    }
    m_attachments.clear();
    for (auto& header : m_customHeaders) delete header.second;
    m_customHeaders.clear();
    // The X-Mailer text and the boundary base outlive a Clear on purpose.
}

int32_t CNvMail::LoadFromFile(const char* path) {
    Clear();
    if (!m_mime->LoadMimeFile(path)) return kLoadFailed;
    return Decode();
}

void CNvMail::GetHeader(const char* name, CNvcString& out) {
    out.Assign(m_mime->header(name));
}

void CNvMail::RemoveHeader(const char* name) {
    if (name == nullptr) return;
    const auto found = m_customHeaders.find(name);
    if (found == m_customHeaders.end()) return;
    delete found->second;
    m_customHeaders.erase(found);
}

void CNvMail::GetMimeText(CNvcString& out) { out.Assign(ComposedText()); }

const char* CNvMail::ComposedText() { return m_mime->getMime(); }

void CNvMail::SetCustomHeader(const char* name, const char16_t* text) {
    if (name == nullptr) return;
    MailAddress*& pair = m_customHeaders[name];
    if (pair == nullptr) pair = new MailAddress;
    pair->m_name.Assign(name);
    pair->m_address.Assign(text);
}
