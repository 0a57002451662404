// Md5Test.cpp - the digest against OpenSSL, whole and in two pieces
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
    for (size_t i = 0; i < Md5::kDigestSize; ++i) out += {kDigits[digest[i] >> 4], kDigits[digest[i] & 15]};
    return out;
}

}  // namespace

// Every length around the padding boundaries, then a few larger ones; the
// piecewise digest cuts at every offset of the first 70 bytes, so a partial
// block left by one Update is carried into the next.
TEST(Md5, AgreesWithOpenSslWholeAndInPieces) {
    std::mt19937 random(20261123);
    std::vector<size_t> lengths;
    for (size_t n = 0; n <= 200; ++n) lengths.push_back(n);
    for (size_t n : {1000u, 4095u, 4096u, 65537u, 1000003u}) lengths.push_back(n);
    for (size_t length : lengths) {
        SCOPED_TRACE("length " + std::to_string(length));
        std::vector<uint8_t> data(length);
        for (auto& byte : data) byte = uint8_t(random());
        uint8_t want[EVP_MAX_MD_SIZE];
        unsigned int wantLength = 0;
        EVP_Digest(data.data(), data.size(), want, &wantLength, EVP_md5(), nullptr);
        uint8_t digest[Md5::kDigestSize];
        Md5::Digest(data.data(), data.size(), digest);
        ASSERT_EQ(Hex(digest), Hex(want));
        const size_t cut = length % 70;
        Md5 md5;
        md5.Update(data.data(), cut);
        md5.Update(data.data() + cut, length - cut);
        md5.Final(digest);
        ASSERT_EQ(Hex(digest), Hex(want)) << "cut at " << cut;
    }
}
