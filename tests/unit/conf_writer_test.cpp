#include "util/conf_writer.h"

#include "tests/fake_board.h"

using namespace std::string_literals;
using ConfWriter = BoardTest;

namespace
{

int Set()
{
    return CUTIL_SetConfValue("/etc/a.conf", "key", "9");
}

int SetSep()
{
    return CUTIL_SetConfValueSep(':', "/etc/a.conf", "key", "9");
}

int SetFile()
{
    return CUTIL_SetFileValue("/etc/a.conf", "/etc/my.tmp", "key", "9");
}

} // namespace

TEST_F(ConfWriter, RewritesItsLines)
{
    const std::string x255(255, 'x');
    const std::string longest(262'143, 'x');
    const std::tuple<int (*)(), std::string, std::string> cases[] = {
        {Set, "a=1\nkey=2\nb=3\n", "a=1\nkey=9\nb=3\n"},
        {Set, "key=1\na=1\nkey=2\n", "key=9\na=1\nkey=9\n"},
        {Set, "a=1\n", "a=1\nkey=9\n"},
        {Set, "a=1", "a=1key=9\n"},
        {Set, "", "key=9\n"},
        {Set, "key =1\n", "key=9\n"},
        {Set, "key\t=1\n", "key\t=1\nkey=9\n"},
        {Set, " key=1\n", " key=1\nkey=9\n"},
        {Set, "keyboard=1\n", "keyboard=1\nkey=9\n"},
        {Set, "key#=1\n", "key#=1\nkey=9\n"},
        {Set, "key=a#b\n", "key=9\n"},
        {Set, "key", "key=9\n"},
        {Set, "key\n", "key\nkey=9\n"},
        {Set, "#key=1\n", "#key=1\nkey=9\n"},
        {Set, x255 + "key=1\n", x255 + "key=9\n"}, // a piece counts as a line
        {Set, "a\0b\nkey=1\n\0"s, "a\0b\nkey=9\n\0"s},
        {SetSep, "key:1\nkeyboard\n key:2\n", "key:9\nkey:9\n key:2\n"},
        {SetSep, "a=1\n", "a=1\nkey:9\n"},
        {SetFile, "key:1\nkeyboard\n key=2\n", "key=9\nkey=9\n key=2\n"},
        {SetFile, longest.substr(1) + "key=1\n", longest.substr(1) + "key=1\nkey=9\n"},
        {SetFile, longest + "key=1\n", longest + "key=9\n"},
    };
    for (const auto &[set, before, after] : cases) {
        board.Write("/etc/a.conf", before);
        EXPECT_EQ(board.Run(set), 0);
        EXPECT_EQ(board.Read("/etc/a.conf"), after);
        EXPECT_EQ(board.Read("/etc/temp.conf") + board.Read("/etc/my.tmp"), "(none)(none)");
    }
    EXPECT_EQ(board.transcript(), "\n");
}

TEST_F(ConfWriter, StaysOutWhileTheScratchFileIsThere)
{
    board.Write("/etc/a.conf", "key=1\n");
    board.Write("/etc/temp.conf", "another writer's");
    EXPECT_EQ(board.Run(Set), -1);
    EXPECT_EQ(board.transcript(), "\nout [CUTIL_SetConfValue] temp.conf is already used ...\n");
    EXPECT_EQ(board.Read("/etc/a.conf") + board.Read("/etc/temp.conf"), "key=1\nanother writer's");
    EXPECT_EQ(board.Run(SetSep), 0); // this one does not look
}
