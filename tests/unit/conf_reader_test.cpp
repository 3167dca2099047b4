#include "util/conf_reader.h"

#include <array>

#include "tests/fake_board.h"

using ConfReader = BoardTest;

TEST_F(ConfReader, TakesTokens)
{
    // The token, "-" where there is none, and where reading stops, -1 for null.
    const std::tuple<const char *, const char *, ptrdiff_t> cases[] = {
        {"key=v", "key", 4},     {" \t key", "key", 6}, {"key\r\n", "key", 3}, {"k\n", "k", 1},
        {"a \t=", "a ", 4},      {"a  \n", "a ", 3},    {"=v", "", 1},         {"a b=", "a b", 4},
        {"", "-", -1},           {" \r\n", "-", -1},    {" #x", "-", 1},       {"[s]", "-", 0},
        {"a#b", "a#b", 3},       {"\"abc\"", "abc", 5}, {"\"abc", "ab", 4},    {"\"", "", 1},
        {"a\"b\"", "a\"b\"", 4}, {"\"\"", "", 2},       {"\"a\"  ", "a\"", 5},
    };
    for (const auto &[text, token, end] : cases) {
        std::array<char, 16> buffer{'-'};
        const char *stop = CUTIL_ParseConfLine(buffer, text);
        EXPECT_STREQ(buffer.data(), token) << text;
        EXPECT_EQ(stop == nullptr ? -1 : stop - text, end) << text;
    }
    std::array<char, 4> small{};
    EXPECT_STREQ(CUTIL_ParseConfLineSep(':', small, "a=bcdef:x"), "x");
    EXPECT_STREQ(small.data(), "a=b");
}

TEST_F(ConfReader, LooksUpKeys)
{
    const std::string k63(63, 'k');
    const std::string v2043(2043, 'v'); // fills the line buffer behind "key="
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {"  model = VM07 \n", "model", "VM07"},
        {"model  =  VM07\n", "model", "VM07"},
        {"\tmodel\t=\tVM07\r\n", "model", "VM07"},
        {"key=\"abc\"\n", "key", "abc"},
        {"key=\"abc\"  \n", "key", "abc\""},
        {"key=a=b\n", "key", "a"},
        {"y=5\nkey=\n", "key", ""},
        {"y=5\nkey", "key", ""},
        {"key=abc #x\n", "key", "abc #x"},
        {"#key=1\n [key]\n\n \t\n\t#key=2\nkey=3", "key", "3"},
        {"a=1\nz=9\n#end\n", "missing", "9"},
        {"", "missing", ""},
        {"camera=1\ncam=2\n", "cam", "1"},
        {"cam=1\nz=9\n", "camera", "9"},
        {"=5\na=1\n", "", "5"},
        // A '#' or '[' behind the '=' makes it no key line; behind a blank, the value before it.
        {"y=5\nkey=#x\n", "key", "5"},
        {"y=5\nkey=a=#b\n", "key", "a"},
        {"y=5\nkey=[x\nz=7\n", "key", "7"},
        {"y=5\nkey= #x\nz=7\n", "key", "5"},
        // What does not fit: keys are cut, lines go on as lines of their own.
        {k63 + "kk=1\nz=9\n", k63, "1"},
        {k63 + "kk=1\nz=9\n", k63 + "k", "9"},
        {"key=" + v2043 + "cam=7\n", "cam", "7"},
        {"key=" + v2043 + "cam=7\n", "key", v2043},
    };
    for (const auto &[text, key, expected] : cases) {
        board.Write("/etc/a.conf", text);
        std::array<char, 2048> value{'-'};
        EXPECT_EQ(board.Run(CUTIL_GetConfValue, "/etc/a.conf", key.c_str(), std::span{value}), 0);
        EXPECT_EQ(value.data(), expected) << text << " : " << key;
    }
    EXPECT_EQ(board.transcript(), "\n");
}

TEST_F(ConfReader, MatchesExactlyOrWithAnotherSeparator)
{
    const std::string k1023(1023, 'k');
    board.Write("/etc/a.conf", "camera=1\ncam=12345678\n" + k1023 + "k=3\nz=9\n");
    board.Write("/etc/b.conf", "x=y:1\ncam:" + std::string(250, 'v') + "end:2\n");
    std::array<char, 256> value{};
    const auto exact = [&](const std::string &key, std::span<char> destination) {
        board.Run(CUTIL_GetConfValueExact, "/etc/a.conf", key.c_str(), destination);
        return std::string{value.data()};
    };
    EXPECT_EQ(exact("cam", std::span{value}.first(8)), "1234567");
    EXPECT_EQ(exact(k1023, value), "3");
    const auto separated = [&](const char *key) {
        board.Run(CUTIL_GetConfValueSep, "/etc/b.conf", key, std::span<char>{value}, ':');
        return std::string{value.data()};
    };
    EXPECT_EQ(separated("x"), "1");
    EXPECT_EQ(separated("ca"), std::string(191, 'v'));
    EXPECT_EQ(separated("vend"), "2"); // beyond 255 characters
}

TEST_F(ConfReader, LeavesTheValueAloneWithoutAFile)
{
    std::array<char, 4> value{"old"};
    const std::span<char> destination{value};
    EXPECT_EQ(board.Run(CUTIL_GetConfValue, "/etc/a", "k", destination), -1);
    EXPECT_EQ(board.Run(CUTIL_GetConfValueExact, "/etc/a", "k", destination), -1);
    EXPECT_EQ(board.Run(CUTIL_GetConfValueSep, "/etc/a", "k", destination, ':'), -1);
    EXPECT_STREQ(value.data(), "old");
}
