// DotStufferTest.cpp - the stuffed stream, byte for byte, whatever the size of
// the pieces it is asked for
#include "smtp/DotStuffer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

std::string Drain(const char* text, const char* terminator, uint32_t room) {
    DotStuffer stuffer(text, terminator);
    std::string out;
    std::vector<uint8_t> piece(room);
    for (;;) {
        const uint32_t got = stuffer.Fill(piece.data(), room);
        if (got == 0) break;
        EXPECT_LE(got, room);
        out.append(reinterpret_cast<const char*>(piece.data()), got);
        if (got < room) {
            EXPECT_EQ(stuffer.Fill(piece.data(), room), 0u) << "a short piece must be the last";
            break;
        }
    }
    return out;
}

}  // namespace

TEST(DotStuffer, EveryPieceSizeGivesTheSameStream) {
    const std::pair<std::string, std::string> cases[] = {
        {"", "\r\n.\r\n"},
        {"..", "...\r\n.\r\n"},
        {"A: b\r\n\r\n.\r\n.x\r\nend", "A: b\r\n\r\n..\r\n..x\r\nend\r\n.\r\n"},
        {"body\r\n", "body\r\n\r\n.\r\n"},  // a text ending in CR LF gets an empty line
        {"a\n.b\n\n.", "a\n..b\n\n..\r\n.\r\n"},  // a dot after a bare LF is stuffed too
        {"a.b..c", "a.b..c\r\n.\r\n"},
    };
    for (const auto& [text, want] : cases) {
        SCOPED_TRACE(testing::PrintToString(text));
        for (uint32_t room = 1; room <= want.size() + 2; ++room)
            ASSERT_EQ(Drain(text.c_str(), "\r\n", room), want) << "room " << room;
    }
}

TEST(DotStuffer, TheTextEndsAtItsFirstZeroByteAndTheTerminatorIsTheCallers) {
    const char text[] = ".a\0.b";
    EXPECT_EQ(Drain(text, "\r\n", 3), "..a\r\n.\r\n");
    EXPECT_EQ(Drain("a", "\n", 64), "a\r\n.\n");
}
