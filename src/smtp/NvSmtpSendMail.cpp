// NvSmtpSendMail.cpp - one MAIL FROM / RCPT TO / DATA transaction for a mail object
//
// See NvSmtp.h. Kept apart so that a program linking the client without the
// mail object does not pull in the mail object's code.
#include <initializer_list>
#include <vector>

#include "mail/NvMail.h"
#include "smtp/NvSmtp.h"

int32_t CNvSmtp::SendMail(CNvMail& mail) {
    if (!IsConnected()) return kNotConnected;
    if (m_resetNeeded) {
        m_resetNeeded = 0;
        const int32_t reset = ResetSession();
        if (reset != 0) {
            Quit();
            return reset;
        }
    }
    const int32_t from = MailFrom(mail.m_fromAddress.GetAnsi());
    if (from != 0) return from;
    for (const std::vector<MailAddress*>* list : {&mail.m_to, &mail.m_cc, &mail.m_bcc}) {
        const int32_t rcpt = RcptTo(*list);
        if (rcpt != 0) return rcpt;
    }
    // Composed only now, after the recipients were accepted; its result is
    // always 0.
    mail.Compose();
    return SendData(mail.ComposedText());
}
