// Japanese.cpp - ISO-2022-JP to and from Shift-JIS (code page 932)
//
// See Japanese.h
#include "textlib/charset/Japanese.h"

#include <atomic>
#include <cstring>

#include "textlib/charset/OutputStage.h"
#include "textlib/charset/TableBase64.h"
#include "textlib/charset/tables/StoredTables.h"

namespace brelkin {

namespace {

constexpr uint8_t kEsc = 0x1B;
constexpr uint32_t kIbmCells = 376;  // JIS rows 0x79-0x7C, 94 cells each

// Full-width Shift-JIS forms of the half-width katakana 0xA1-0xDF.
constexpr uint16_t kFullWidthKana[63] = {
    0x8142, 0x8175, 0x8176, 0x8141, 0x8145, 0x8392, 0x8340, 0x8342, 0x8344,
    0x8346, 0x8348, 0x8383, 0x8385, 0x8387, 0x8362, 0x815B, 0x8341, 0x8343,
    0x8345, 0x8347, 0x8349, 0x834A, 0x834C, 0x834E, 0x8350, 0x8352, 0x8354,
    0x8356, 0x8358, 0x835A, 0x835C, 0x835E, 0x8360, 0x8363, 0x8365, 0x8367,
    0x8369, 0x836A, 0x836B, 0x836C, 0x836D, 0x836E, 0x8371, 0x8374, 0x8377,
    0x837A, 0x837D, 0x837E, 0x8380, 0x8381, 0x8382, 0x8384, 0x8386, 0x8388,
    0x8389, 0x838A, 0x838B, 0x838C, 0x838D, 0x838F, 0x8393, 0x814A, 0x814B,
};

struct IbmRange {
    uint8_t lead, low, high, row;
    int shift;
};

// Lead FA-FC to JIS rows 0x79-0x7C. Kept on purpose as the encoder has always
// had them: FA 80-8F is left out (such pairs go on as ordinary bytes), and
// FC 40-4B is moved down, not up, into the cells of FB BB-C6.
constexpr IbmRange kIbmRanges[] = {
    {0xFA, 0x5C, 0x7E, 0x79, -0x3B}, {0xFA, 0x90, 0xBA, 0x79, -0x3C},
    {0xFA, 0xBB, 0xFC, 0x7A, -0x9A}, {0xFA, 0x40, 0x49, 0x7C, 0x31},
    {0xFA, 0x55, 0x57, 0x7C, 0x27},  {0xFB, 0x40, 0x5B, 0x7A, 0x23},
    {0xFB, 0x5C, 0x7E, 0x7B, -0x3B}, {0xFB, 0x80, 0xBA, 0x7B, -0x3C},
    {0xFB, 0xBB, 0xFC, 0x7C, -0x9A}, {0xFC, 0x40, 0x4B, 0x7C, -0x23},
};

// The IBM extension table, decoded once and kept for the life of the process.
const uint8_t* ibmExtensionTable() {
    static std::atomic<const uint8_t*> table{nullptr};
    const uint8_t* cached = table.load(std::memory_order_acquire);
    if (cached)
        return cached;
    DataBuffer decoded;
    TableBase64::decode(textlib_tables::kIbmExtensionTable,
                        static_cast<uint32_t>(std::strlen(textlib_tables::kIbmExtensionTable)),
                        decoded);
    if (decoded.getSize() < kIbmCells * 2)
        return nullptr;
    uint8_t* block = new uint8_t[kIbmCells * 2];
    std::memcpy(block, decoded.getData(), kIbmCells * 2);
    table.store(block, std::memory_order_release);
    return block;
}

// Writes ESC $ B / ESC ( B as the double-byte state changes.
class JisWriter {
public:
    explicit JisWriter(DataBuffer& out) : m_stage(out), m_doubleByte(false) {}
    ~JisWriter() { leaveDoubleByte(); }

    void pair(uint8_t row, uint8_t cell) {
        if (!m_doubleByte)
            m_stage.putBytes(reinterpret_cast<const uint8_t*>("\x1b$B"), 3);
        m_doubleByte = true;
        m_stage.put2(row, cell);
    }
    void single(uint8_t byte) {
        leaveDoubleByte();
        m_stage.put(byte);
    }
    void raw(uint8_t a, uint8_t b) { m_stage.put2(a, b); }
    bool inDoubleByte() const { return m_doubleByte; }

private:
    void leaveDoubleByte() {
        if (m_doubleByte)
            m_stage.putBytes(reinterpret_cast<const uint8_t*>("\x1b(B"), 3);
        m_doubleByte = false;
    }

    OutputStage<200> m_stage;
    bool m_doubleByte;
};

bool ibmToJis(uint8_t a, uint8_t b, uint8_t& row, uint8_t& cell) {
    for (const IbmRange& r : kIbmRanges) {
        if (r.lead == a && b >= r.low && b <= r.high) {
            row = r.row;
            cell = static_cast<uint8_t>(b + r.shift);
            return true;
        }
    }
    return false;
}

// The standard Shift-JIS to JIS arithmetic.
void shiftJisPairToJis(uint8_t a, uint8_t b, JisWriter& out) {
    const bool odd = b < 0x9F;
    const int row = (a - (a < 0xA0 ? 0x70 : 0xB0)) * 2 - (odd ? 1 : 0);
    int cell;
    if (odd)
        cell = b - (b >= 0x80 ? 0x20 : 0x1F);
    else
        cell = b - 0x7E;
    out.pair(static_cast<uint8_t>(row), static_cast<uint8_t>(cell));
}

void twoByteCharacter(uint8_t a, uint8_t b, JisWriter& out) {
    if (b >= 0x40 && b <= 0xFC)
        shiftJisPairToJis(a, b, out);
    else
        out.raw(a, b);
}

bool takesVoicedMark(uint8_t kana) {
    return (kana >= 0xB6 && kana <= 0xC4) || (kana >= 0xCA && kana <= 0xCE) || kana == 0xB3;
}

// Half-width katakana at in[i] to its full-width pair, taking in a fitting
// mark behind it; returns the bytes consumed.
uint32_t foldKana(const uint8_t* in, uint32_t length, uint32_t i, JisWriter& out) {
    const uint8_t kana = in[i];
    uint16_t full = kFullWidthKana[kana - 0xA1];
    uint32_t used = 1;
    const uint8_t mark = i + 1 < length ? in[i + 1] : 0;
    if (mark == 0xDE && takesVoicedMark(kana)) {
        full = full == 0x8345 ? 0x8394 : static_cast<uint16_t>(full + 1);
        used = 2;
    } else if (mark == 0xDF && kana >= 0xCA && kana <= 0xCE) {
        full = static_cast<uint16_t>(full + 2);
        used = 2;
    }
    shiftJisPairToJis(static_cast<uint8_t>(full >> 8), static_cast<uint8_t>(full), out);
    return used;
}

bool isDoubleByteLead(uint8_t a) { return (a >= 0x81 && a <= 0x9F) || (a >= 0xE0 && a <= 0xEF); }

// The standard JIS to Shift-JIS arithmetic.
void jisPairToShiftJis(uint8_t c1, uint8_t c2, OutputStage<200>& out) {
    const uint8_t lead = static_cast<uint8_t>((c1 + 1) / 2 + (c1 < 0x5F ? 0x70 : 0xB0));
    uint8_t trail;
    if (c1 % 2 == 0)
        trail = static_cast<uint8_t>(c2 + 0x7E);
    else
        trail = static_cast<uint8_t>(c2 + (c2 < 0x60 ? 0x1F : 0x20));
    out.put2(lead, trail);
}

void decodePair(uint8_t c1, uint8_t c2, OutputStage<200>& out) {
    if (c1 >= 0x79 && c1 <= 0x7C) {
        const int index = (c1 - 0x79) * 94 + c2 - 0x21;
        const uint8_t* table = ibmExtensionTable();
        if (table && index >= 0 && index < static_cast<int>(kIbmCells)) {
            out.put2(table[index * 2], table[index * 2 + 1]);
            return;
        }
    }
    jisPairToShiftJis(c1, c2, out);
}

struct DecodeState {
    bool doubleByte = false;
    bool kana = false;
};

// An escape sequence at in[i]; returns the bytes it takes.
uint32_t readEscape(const uint8_t* in, uint32_t length, uint32_t i, DecodeState& state) {
    if (i + 1 >= length)
        return 1;
    const uint8_t kind = in[i + 1];
    if (kind != '$' && kind != '(')
        return 2;
    if (i + 2 >= length)
        return 2;
    const uint8_t final = in[i + 2];
    if (kind == '$' && (final == '@' || final == 'B')) {
        state.doubleByte = true;
        state.kana = false;
    } else if (kind == '(' && (final == 'B' || final == 'J')) {
        state.doubleByte = false;
        state.kana = false;
    } else if (kind == '(' && final == 'I') {
        state.kana = true;
        state.doubleByte = false;
    }
    return 3;
}

}  // namespace

void Japanese::shiftJisToIso2022(const uint8_t* in, uint32_t length, DataBuffer& out) {
    if (!in || length == 0)
        return;
    JisWriter writer(out);
    for (uint32_t i = 0; i < length; ++i) {
        const uint8_t a = in[i];
        int taken = -1;  // a trail byte already consumed by the IBM step
        if (a >= 0xFA && a <= 0xFC) {
            if (i + 1 >= length)
                break;
            taken = in[++i];
            uint8_t row, cell;
            if (ibmToJis(a, static_cast<uint8_t>(taken), row, cell)) {
                writer.pair(row, cell);
                continue;
            }
        }
        if (a == '\r' || a == '\n') {
            writer.single(a);
        } else if (isDoubleByteLead(a) || (a >= 0x81 && writer.inDoubleByte() && !(a >= 0xA1 && a <= 0xDF))) {
            if (taken < 0) {
                if (i + 1 >= length)
                    break;
                taken = in[++i];
            }
            twoByteCharacter(a, static_cast<uint8_t>(taken), writer);
        } else if (a >= 0xA1 && a <= 0xDF) {
            i += foldKana(in, length, i, writer) - 1;
        } else {
            writer.single(a);
        }
    }
}

void Japanese::iso2022ToShiftJis(const uint8_t* in, uint32_t length, DataBuffer& out) {
    if (!in || length == 0)
        return;
    OutputStage<200> stage(out);
    DecodeState state;
    for (uint32_t i = 0; i < length; ++i) {
        const uint8_t c = in[i];
        if (c == kEsc) {
            i += readEscape(in, length, i, state) - 1;
        } else if (c == '\r' || c == '\n') {
            if (state.doubleByte)
                state = DecodeState();
            stage.put(c);
        } else if (state.doubleByte) {
            if (i + 1 >= length)
                break;
            decodePair(c, in[++i], stage);
        } else if (state.kana) {
            stage.put(static_cast<uint8_t>(c + 0x80));
        } else {
            stage.put(c);
        }
    }
}

}  // namespace brelkin
