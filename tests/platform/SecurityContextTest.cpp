// SecurityContextTest.cpp - the token-stepped TLS client against an in-memory server
#include "platform/SecurityContext.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/SecurityTestPeer.h"
#include "support/TestPaths.h"

namespace {

using namespace platform;
using namespace testsupport;

struct StepResult {
    SECURITY_STATUS status;
    std::string output;
    uint32_t extra;  // unconsumed trailing bytes of the input
};

class Client {
public:
    Client() {
        SCHANNEL_CRED settings{SCHANNEL_CRED_VERSION, 0, nullptr, 0,
                               SCH_CRED_MANUAL_CRED_VALIDATION | SCH_CRED_NO_DEFAULT_CREDS};
        EXPECT_EQ(AcquireCredentialsHandle(SECPKG_CRED_OUTBOUND, &settings, &cred), SEC_E_OK);
    }
    ~Client() {
        if (SecIsValidHandle(context)) DeleteSecurityContext(&context);
        if (SecIsValidHandle(cred)) FreeCredentialsHandle(&cred);
    }

    StepResult Step(const std::string& input) {
        std::string copy = input;
        SecBuffer in[2] = {{static_cast<uint32_t>(copy.size()), SECBUFFER_TOKEN, copy.data()},
                           {0, SECBUFFER_EMPTY, nullptr}};
        SecBufferDesc inDesc{SECBUFFER_VERSION, 2, in};
        SecBuffer out{0, SECBUFFER_TOKEN, nullptr};
        SecBufferDesc outDesc{SECBUFFER_VERSION, 1, &out};
        uint32_t attributes = 0;
        const bool first = !SecIsValidHandle(context);
        StepResult r;
        r.status = InitializeSecurityContext(&cred, first ? nullptr : &context, first ? "localhost" : nullptr,
                                             0xC11C, SECURITY_NATIVE_DREP, first ? nullptr : &inDesc,
                                             &context, &outDesc, &attributes);
        r.output.assign(static_cast<const char*>(out.pvBuffer), out.cbBuffer);
        FreeContextBuffer(out.pvBuffer);
        r.extra = in[1].BufferType == SECBUFFER_EXTRA ? in[1].cbBuffer : 0;
        return r;
    }

    // Decrypts the first record of `bytes`: status, plaintext, extra count.
    StepResult Decrypt(const std::string& bytes) {
        std::string copy = bytes;
        SecBuffer buffers[4] = {{static_cast<uint32_t>(copy.size()), SECBUFFER_DATA, copy.data()},
                                {0, SECBUFFER_EMPTY, nullptr}, {0, SECBUFFER_EMPTY, nullptr},
                                {0, SECBUFFER_EMPTY, nullptr}};
        SecBufferDesc desc{SECBUFFER_VERSION, 4, buffers};
        StepResult r{DecryptMessage(&context, &desc, 0, nullptr), "junk", 0};
        r.output.clear();
        for (const SecBuffer& b : buffers) {
            if (b.BufferType == SECBUFFER_DATA) r.output.assign(static_cast<const char*>(b.pvBuffer), b.cbBuffer);
            if (b.BufferType == SECBUFFER_EXTRA) r.extra = b.cbBuffer;
        }
        return r;
    }

    CredHandle cred = kNoSecHandle;
    CtxtHandle context = kNoSecHandle;
};

struct VersionCase {
    const char* name;
    int maxVersion;
};
const VersionCase kVersions[] = {{"TLS 1.2", TLS1_2_VERSION}, {"TLS 1.3", 0}};

TEST(SecurityHandshake, HandshakeAndDecryptConsumeOnlyWholeRecords) {
    for (const VersionCase& v : kVersions) {
        SCOPED_TRACE(v.name);
        ServerSetup setup;
        setup.maxVersion = v.maxVersion;
        setup.tickets = 0;  // no ticket records ahead of the data
        TlsServerSession server(setup);
        Client client;
        StepResult r = client.Step("");
        ASSERT_EQ(r.status, SEC_I_CONTINUE_NEEDED);
        ASSERT_FALSE(r.output.empty());
        server.Feed(r.output);
        const std::string flight = server.TakeOutput();
        ASSERT_GT(flight.size(), 10u);

        // Nothing whole: nothing consumed, nothing to send.
        r = client.Step(flight.substr(0, 3));
        EXPECT_EQ(r.status, SEC_E_INCOMPLETE_MESSAGE);
        EXPECT_TRUE(r.output.empty());

        // All but the last byte: the tail of the cut record comes back as extra.
        r = client.Step(flight.substr(0, flight.size() - 1));
        EXPECT_EQ(r.status, SEC_I_CONTINUE_NEEDED);
        ASSERT_GT(r.extra, 0u);
        const std::string rest = flight.substr(flight.size() - 1 - r.extra);
        r = client.Step(rest);
        if (v.maxVersion == TLS1_2_VERSION) {
            ASSERT_EQ(r.status, SEC_I_CONTINUE_NEEDED);
            server.Feed(r.output);
            r = client.Step(server.TakeOutput());
        }
        EXPECT_EQ(r.status, SEC_E_OK);
        EXPECT_EQ(r.extra, 0u);
        server.Feed(r.output);
        ASSERT_TRUE(server.done());
        EXPECT_FALSE(server.failed());

        // Records: one at a time, the rest handed back as extra.
        const std::string first = server.Seal({"250-one\r\n"});
        const std::string second = server.Seal({"250 two\r\n"});
        StepResult d = client.Decrypt(first.substr(0, first.size() - 1));
        EXPECT_EQ(d.status, SEC_E_INCOMPLETE_MESSAGE);
        d = client.Decrypt(first + second);
        EXPECT_EQ(d.status, SEC_E_OK);
        EXPECT_EQ(d.output, "250-one\r\n");
        EXPECT_EQ(d.extra, second.size());
        d = client.Decrypt(second);
        EXPECT_EQ(d.output, "250 two\r\n");
        EXPECT_EQ(d.extra, 0u);

        std::string tampered = server.Seal({"250 three\r\n"});
        tampered[tampered.size() - 2] ^= 0x55;
        EXPECT_EQ(client.Decrypt(tampered).status, SEC_E_DECRYPT_FAILURE);
    }
}

TEST(SecurityHandshake, GarbageFromTheServerFailsTheStep) {
    Client client;
    client.Step("");
    const std::string garbage = std::string("\x16\x03\x03\x00\x04", 5) + "junk";
    const StepResult r = client.Step(garbage);
    EXPECT_LT(r.status, 0);
    EXPECT_NE(r.status, SEC_E_INCOMPLETE_MESSAGE);
}

// --- client certificates and the store --------------------------------------

TEST(SecurityStore, FindsChainsByIssuerAndUsage) {
    testsupport::TempDir dir;
    const TestCertificate ca = MakeCertificate({"Test CA", -1, 30, nullptr, nullptr, true});
    const TestCertificate otherCa = MakeCertificate({"Other CA", -1, 30, nullptr, nullptr, true});
    const TestCertificate a = MakeCertificate({"a-client", -1, 30, &ca, "clientAuth"});
    const TestCertificate b = MakeCertificate({"b-server-only", -1, 30, &ca, "serverAuth"});
    const TestCertificate c = MakeCertificate({"c-other", -1, 30, &otherCa, nullptr});
    const TestCertificate d = MakeCertificate({"d-split-key", -1, 30, &ca, nullptr});
    testsupport::WriteFile(dir.file("a.pem"), a.keyPem + a.certPem);
    testsupport::WriteFile(dir.file("b.pem"), b.certPem + b.keyPem);
    testsupport::WriteFile(dir.file("c.pem"), c.certPem + c.keyPem);
    testsupport::WriteFile(dir.file("d.pem"), d.certPem);
    testsupport::WriteFile(dir.file("d.key"), d.keyPem);
    testsupport::WriteFile(dir.file("e.pem"), a.certPem + c.keyPem);  // key of another pair
    testsupport::WriteFile(dir.file("f.pem"), "not a certificate");
    StoreFolder folder(dir.path().c_str());

    CertStore* store = CertOpenSystemStore("MY");
    ASSERT_NE(store, nullptr);
    X509* caCert = testsupport::CertFromPem(ca.certPem);
    unsigned char* der = nullptr;
    const int length = i2d_X509_NAME(X509_get_subject_name(caCert), &der);
    const CertNameBlob issuer{static_cast<uint32_t>(length), der};

    struct Case {
        const char* name;
        uint32_t issuers;
        std::vector<std::string> want;
    } cases[] = {
        {"issued by the CA, for clients", 1, {"a-client", "d-split-key"}},
        {"no issuer list: any client certificate", 0, {"a-client", "c-other", "d-split-key"}},
    };
    for (const Case& k : cases) {
        SCOPED_TRACE(k.name);
        CERT_CHAIN_FIND_BY_ISSUER_PARA para{sizeof(para), kClientAuthUsage, 0, 0, k.issuers, &issuer,
                                            nullptr, nullptr};
        std::vector<std::string> found;
        for (const CertChainContext* chain = nullptr;
             (chain = CertFindChainInStore(store, X509_ASN_ENCODING, 0, CERT_CHAIN_FIND_BY_ISSUER, &para,
                                           chain)) != nullptr;) {
            SCHANNEL_CRED settings{SCHANNEL_CRED_VERSION, 1, &chain->firstCertificate, 0, 0x18};
            CredHandle cred = kNoSecHandle;
            ASSERT_EQ(AcquireCredentialsHandle(SECPKG_CRED_OUTBOUND, &settings, &cred), SEC_E_OK);
            FreeCredentialsHandle(&cred);
            found.push_back(CertGetNameString(chain->firstCertificate));
        }
        EXPECT_EQ(found, k.want);
    }
    OPENSSL_free(der);
    X509_free(caCert);
    CertCloseStore(store);
}

TEST(SecurityStore, UnsetIsEmptyAndMissingFolderFails) {
    {
        StoreFolder unset(nullptr);
        CertStore* store = CertOpenSystemStore("MY");
        ASSERT_NE(store, nullptr);
        CERT_CHAIN_FIND_BY_ISSUER_PARA para{sizeof(para), kClientAuthUsage, 0, 0, 0, nullptr, nullptr, nullptr};
        EXPECT_EQ(CertFindChainInStore(store, 1, 0, CERT_CHAIN_FIND_BY_ISSUER, &para, nullptr), nullptr);
        CertCloseStore(store);
    }
    StoreFolder missing("/nonexistent/telmoraq-store");
    EXPECT_EQ(CertOpenSystemStore("MY"), nullptr);
}

}  // namespace
