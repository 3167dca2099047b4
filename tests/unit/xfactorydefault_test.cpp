#include "tests/fake_board.h"

using namespace std::string_literals;
using XFactoryDefault = BoardTest;

TEST_F(XFactoryDefault, CopiesWhatTheListSays)
{
    board.Write("/etc/default/a.conf", "factory");
    board.Write("/etc/a.conf", "user");
    const std::string longest = "/a " + std::string(251, 'b'); // 254 characters and the line end
    board.Write("/etc/list", "[files]\n/a /b\0.conf\n#comment\n"s +
                                 "/etc/default/a.conf /etc/a.conf\n\n #no\n-r x y\n" + longest +
                                 "\n" + longest + "b\n" + longest + "bb\n# " +
                                 std::string(300, 'c') + "\n" + longest + "c");
    EXPECT_EQ(board.Start({"xfactorydefault", "/etc/list"}), 0);
    EXPECT_EQ(board.transcript(), "\nsh cp -f /etc/default/a.conf /etc/a.conf\n\nsh cp -f \n\n"
                                  "sh cp -f  #no\n\nsh cp -f -r x y\n\n"
                                  "sh cp -f " +
                                      longest + "\n\nsh cp -f " + longest + "b\n\nsh cp -f " +
                                      longest + "c\n");
    EXPECT_EQ(board.Read("/etc/a.conf"), "factory");
}

TEST_F(XFactoryDefault, NeedsOneListAndIsSilentWithoutIt)
{
    EXPECT_EQ(board.Start({"xfactorydefault", "/etc/none"}), 0);
    EXPECT_EQ(board.transcript(), "\n");
    EXPECT_EQ(board.Start({"xfactorydefault"}), 0);
    EXPECT_EQ(board.Start({"xfactorydefault", "a", "b"}), 0);
    const std::string usage = "out 'xfactorydefault' usage : \nout         <replace filename> \n";
    EXPECT_EQ(board.transcript(), "\n" + usage + usage);
}
