// Md5Test.cpp - the digest against RFC 1321's suite and against OpenSSL
#include "smtp/Md5.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <random>
#include <string>
#include <vector>

namespace {

std::string Hex(const uint8_t* digest) {
    static const char kDigits[] = "0123456789abcdef";
    std::string out;
    for (size_t i = 0; i < Md5::kDigestSize; ++i) {
        out += kDigits[digest[i] >> 4];
        out += kDigits[digest[i] & 15];
    }
    return out;
}

std::string Md5Hex(const std::string& text) {
    uint8_t digest[Md5::kDigestSize];
    Md5::Digest(text.data(), text.size(), digest);
    return Hex(digest);
}

std::string OpenSslMd5Hex(const std::vector<uint8_t>& data) {
    uint8_t digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(data.data(), data.size(), digest, &length, EVP_md5(), nullptr);
    return Hex(digest);
}

}  // namespace

TEST(Md5, MatchesTheReferenceSuite) {
    struct Case {
        const char* text;
        const char* digest;
    } cases[] = {
        {"", "d41d8cd98f00b204e9800998ecf8427e"},
        {"a", "0cc175b9c0f1b6a831c399e269772661"},
        {"abc", "900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
         "d174ab98d277d9f5a5611c2c9f419d9f"},
        {"1234567890123456789012345678901234567890123456789012345678901234567890123456789"
         "0",
         "57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(Md5Hex(c.text), c.digest);
    }
}

TEST(Md5, PiecewiseUpdatesEqualOneUpdate) {
    const std::string text(1000, 'x');
    for (size_t cut : {0u, 1u, 55u, 56u, 63u, 64u, 65u, 999u}) {
        SCOPED_TRACE(cut);
        Md5 md5;
        md5.Update(text.data(), cut);
        md5.Update(text.data() + cut, text.size() - cut);
        uint8_t digest[Md5::kDigestSize];
        md5.Final(digest);
        EXPECT_EQ(Hex(digest), Md5Hex(text));
    }
}

TEST(Md5, AgreesWithOpenSslOnRandomInputs) {
    std::mt19937 random(20261123);
    // Every length around the padding boundaries, then a few larger ones.
    std::vector<size_t> lengths;
    for (size_t n = 0; n <= 200; ++n) lengths.push_back(n);
    for (size_t n : {1000u, 4095u, 4096u, 65537u, 1000003u}) lengths.push_back(n);
    for (size_t length : lengths) {
        std::vector<uint8_t> data(length);
        for (auto& byte : data) byte = uint8_t(random());
        uint8_t digest[Md5::kDigestSize];
        Md5::Digest(data.data(), data.size(), digest);
        ASSERT_EQ(Hex(digest), OpenSslMd5Hex(data)) << "length " << length;
    }
}
