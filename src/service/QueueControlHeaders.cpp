// QueueControlHeaders.cpp - reading and dropping the control headers
//
// See QueueControlHeaders.h
#include "service/QueueControlHeaders.h"

#include <climits>

#include "mail/NvMail.h"

const char* const QueueControlHeaders::kNames[5] = {
    "X-NvQueueService-RemoveBeforeSending-Host",    "X-NvQueueService-RemoveBeforeSending-Port",
    "X-NvQueueService-RemoveBeforeSending-Account", "X-NvQueueService-RemoveBeforeSending-Password",
    "X-NvQueueService-RemoveBeforeSending-Secure",
};

int32_t PortOfHeader(const char* text) {
    long long port = 0;
    for (const char* p = text; *p >= '0' && *p <= '9'; ++p)
        if ((port = port * 10 + (*p - '0')) > INT_MAX) return INT_MAX;
    return static_cast<int32_t>(port);
}

void QueueControlHeaders::TakeFrom(CNvMail& mail) {
    CNvcString portText, secureText;
    mail.GetHeader(kNames[0], host);
    mail.GetHeader(kNames[1], portText);
    mail.GetHeader(kNames[2], account);
    mail.GetHeader(kNames[3], password);
    mail.GetHeader(kNames[4], secureText);
    port = PortOfHeader(portText.GetData());
    password.Unscramble();
    secure = secureText.EqualNoCase("TRUE") ? 1 : 0;
    for (const char* name : kNames) mail.RemoveHeader(name);
}
