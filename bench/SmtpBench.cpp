// SmtpBench.cpp - messages per second through CNvSmtp, one connection per message
//
// Delivers a 10 KB message 200 times, each over a connection of its own
// (connect, EHLO, STARTTLS when asked, MAIL FROM, RCPT TO, DATA, QUIT), to the
// server named by TELMORAQ_BENCH_SMTP_PORT on 127.0.0.1. bench/smtp_bench.py
// starts that server and runs Python's smtplib on the same task beside it;
// run alone without the variable, the benchmark reports an error and stops.
// Whether a run is in the clear or with STARTTLS is the server's choice: the
// client takes an offered STARTTLS by itself.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>

#include "mail/NvMail.h"
#include "smtp/NvSmtp.h"

namespace {

// Header and body lines of 76 characters, some starting with a dot.
std::string TenKilobyteMessage() {
    std::string text = "From: <bench@example.test>\r\nTo: <sink@example.test>\r\nSubject: bench\r\n\r\n";
    for (int line = 0; text.size() < 10 * 1000; ++line)
        text += (line % 10 == 0 ? "." : "x") + std::string(75, static_cast<char>('a' + line % 26)) + "\r\n";
    return text;
}

void BM_SmtpDeliver_10KB(benchmark::State& state) {
    const char* port = std::getenv("TELMORAQ_BENCH_SMTP_PORT");
    if (port == nullptr) {
        state.SkipWithError("TELMORAQ_BENCH_SMTP_PORT not set: run bench/smtp_bench.py");
        return;
    }
    const std::string text = TenKilobyteMessage();
    MailAddress sink;
    sink.m_address.Assign("sink@example.test");
    CNvSmtp client;
    client.SetHost("127.0.0.1");
    client.m_port = std::atoi(port);
    for (auto _ : state) {
        client.m_secure = 0;
        int32_t result = client.Connect();
        if (result == 0) result = client.MailFrom("bench@example.test");
        if (result == 0) result = client.RcptTo({&sink});
        if (result == 0) result = client.SendData(text.c_str());
        client.Quit();
        if (result != 0) {
            state.SkipWithError(("delivery failed: " + std::to_string(result)).c_str());
            return;
        }
    }
    state.SetItemsProcessed(state.iterations());
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK(BM_SmtpDeliver_10KB)->Iterations(200)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
