// Utf7.cpp - UTF-7 (RFC 2152) to and from UTF-16
//
// See Utf7.h
#include "textlib/charset/Utf7.h"

#include <cstring>

#include "textlib/charset/OutputStage.h"

namespace brelkin {

namespace {

const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

bool isDirect(uint16_t unit) {
    if (unit >= 0x80)
        return false;
    if ((unit >= 'A' && unit <= 'Z') || (unit >= 'a' && unit <= 'z') || (unit >= '0' && unit <= '9'))
        return true;
    return unit == ' ' || unit == '\t' || unit == '\r' || unit == '\n' ||
           std::strchr("'(),-./:?", static_cast<char>(unit)) != nullptr;
}

int base64Value(uint8_t c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+') return 62;
    if (c == '/') return 63;
    return -1;
}

class ShiftedRun {
public:
    explicit ShiftedRun(OutputStage<512>& out) : m_out(out), m_bits(0), m_count(0), m_open(false) {}

    void add(uint16_t unit) {
        if (!m_open)
            m_out.put('+');
        m_open = true;
        m_bits = (m_bits << 16) | unit;
        m_count += 16;
        while (m_count >= 6) {
            m_count -= 6;
            m_out.put(static_cast<uint8_t>(kAlphabet[(m_bits >> m_count) & 0x3F]));
        }
    }
    // Pads with zero bits to a whole character and always writes "-".
    void close() {
        if (!m_open)
            return;
        if (m_count > 0)
            m_out.put(static_cast<uint8_t>(kAlphabet[(m_bits << (6 - m_count)) & 0x3F]));
        m_out.put('-');
        m_bits = 0;
        m_count = 0;
        m_open = false;
    }
    bool isOpen() const { return m_open; }

private:
    OutputStage<512>& m_out;
    uint32_t m_bits;
    int m_count;
    bool m_open;
};

}  // namespace

bool utf7Encode(const uint8_t* utf16, uint32_t length, DataBuffer& out) {
    if (!utf16 || length < 2)
        return true;
    OutputStage<512> stage(out);
    ShiftedRun run(stage);
    uint32_t i = 0;
    if (utf16[0] == 0xFF && utf16[1] == 0xFE)
        i = 2;
    for (; i + 1 < length; i += 2) {
        const uint16_t unit = static_cast<uint16_t>(utf16[i] | (utf16[i + 1] << 8));
        if (isDirect(unit)) {
            run.close();
            stage.put(static_cast<uint8_t>(unit));
        } else if (unit == '+' && !run.isOpen()) {
            stage.put2('+', '-');
        } else {
            run.add(unit);
        }
    }
    run.close();
    return true;
}

namespace {

class Utf7Decoder {
public:
    explicit Utf7Decoder(OutputStage<512>& out) : m_out(out) {}

    void feed(uint8_t c) {
        if (m_inRun && readRunByte(c))
            return;
        if (c == '+') {
            startRun();
            return;
        }
        if (c > 0x7F)
            m_ok = false;
        m_out.putUnit(c);
    }
    // The end of the input closes an open run as a direct character would.
    void finish() {
        if (m_inRun)
            readRunByte('.');
    }
    bool ok() const { return m_ok; }

private:
    void startRun() {
        m_inRun = true;
        m_justOpened = true;
        m_gave = false;
        m_bits = 0;
        m_count = 0;
    }
    // Returns true when the byte belonged to the run.
    bool readRunByte(uint8_t c) {
        const int v = base64Value(c);
        if (v >= 0) {
            m_justOpened = false;
            m_bits = (m_bits << 6) | static_cast<uint32_t>(v);
            m_count += 6;
            if (m_count >= 16) {
                m_count -= 16;
                m_out.putUnit(static_cast<uint16_t>(m_bits >> m_count));
                m_gave = true;
            }
            return true;
        }
        const bool plusMinus = m_justOpened && c == '-';
        m_inRun = false;
        if (plusMinus) {
            m_out.putUnit('+');
            return true;
        }
        if (!m_gave || (m_bits & ((1u << m_count) - 1)) != 0)
            m_ok = false;
        return c == '-';  // the closing "-" is swallowed, anything else is direct
    }

    OutputStage<512>& m_out;
    bool m_ok = true;
    bool m_inRun = false;
    bool m_justOpened = false;
    bool m_gave = false;
    uint32_t m_bits = 0;
    int m_count = 0;
};

}  // namespace

bool utf7Decode(const uint8_t* utf7, uint32_t length, DataBuffer& out) {
    if (!utf7 || length == 0)
        return true;
    OutputStage<512> stage(out);
    Utf7Decoder decoder(stage);
    for (uint32_t i = 0; i < length; ++i)
        decoder.feed(utf7[i]);
    decoder.finish();
    return decoder.ok();
}

}  // namespace brelkin
