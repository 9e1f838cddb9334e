// The parts that need no agent.
#include "client.h"
#include "client/inputfiles.h"
#include "client/reply.h"
#include "client/request.h"
#include "client/text.h"
#include "protocol/programsize.h"
#include "tavctl/args.h"
#include "tavctl/exprview.h"
#include "tavctl/program.h"

TEST(TavctlText, MakesWhatATerminalWouldObeyVisible) {
  EXPECT_EQ("\\x1b[31mred\\x07\\r\\n\\tb", Visible("\033[31mred\a\r\n\tb"));
  EXPECT_EQ("gr\xc3\xbc\xc3\x9f", Visible("gr\xc3\xbc\xc3\x9f"));
  EXPECT_EQ("\\xc3 \\xc0\\x80 \\xc2\\x9b \\xe2\\x80\\xae", Visible("\xc3 \xc0\x80 \xc2\x9b \xe2\x80\xae"));
  for (const char* mark : {"\xe2\x81\xa6", "\xe2\x80\x8f", "\xd8\x9c", "\xef\xbb\xbf"})
    EXPECT_EQ('\\', Visible(mark)[0]) << mark;
}

TEST(TavctlRequest, JoinsWordsAsTheAgentPartsThem) {
  const std::pair<std::vector<std::string>, const char*> rows[] = {
      {{"ls", "-l"}, "ls -l"},
      {{"a b", "", "c"}, "\"a b\" \"\" c"},
      {{"say \"x y\""}, "'say \"x y\"'"},
      {{"it's", "x=\"y\""}, "it's x=\"y\""},
      {{"'a' \"b\""}, "refused"},
      {std::vector<std::string>(24, "x"), "refused"},
      {{std::string(1024, 'x')}, "refused"},
  };
  for (const auto& [words, expected] : rows) {
    std::string line;
    TFailure failure;
    EXPECT_EQ(expected, JoinCommand(words, line, failure) ? line : "refused");
  }
}

TEST(TavctlRequest, RefusesValuesThatWouldArriveOtherwise) {
  for (const char* bad : {"a\nb", "a\rb", " a", "a\t", "\xc3\xa9"}) {
    TParams params;
    TFailure failure;
    params.Text(1, bad);
    EXPECT_FALSE(params.Finish(failure)) << bad;
  }
  TParams params;
  TFailure failure;
  params.Text(3, "x");
  params.Encoded(1, "a\r\nb");
  EXPECT_TRUE(params.Finish(failure));
  EXPECT_EQ("C\r\na%0D%0Ab\r\n\r\nx\r\n", params.RequestText("C"));
}

TEST(TavctlReply, TakesOnlyWhatAnAgentSends) {
  TReply reply;
  TFailure failure;
  ASSERT_TRUE(ParseReply("301\nno such file\n\r", reply, failure));
  EXPECT_EQ("301", reply.code);
  EXPECT_EQ(std::vector<std::string>{"no such file"}, reply.lines);
  for (const char* bad : {"", "200", "200\n", "2000\n\n\r", "abc\n\r", "200 \n\r", "200\nx"})
    EXPECT_FALSE(ParseReply(bad, reply, failure)) << bad;
  TReader reader(reply);
  EXPECT_FALSE(reader.Flag("flag"));
  EXPECT_FALSE(reader.Finish(failure)) << "a text is no flag";
}

TEST(TavctlExpr, SaysWhereAnExpressionIsWrong) {
  const std::tuple<const char*, const char*, size_t> rows[] = {
      {"'a' or 'b' and 'c'", "('a' or 'b') and 'c'", 0},
      {"not 'a' or 'b'", "not ('a' or 'b')", 0},
      {"error", "", 0},
      {"  12 and bad", "", 9},
      {"'a' and ('b", "", 9},
      {"'a') or 'b'", "", 3},
      {"'a' 'b'", "", 7},
      {"('a'", "", 4},
  };
  for (const auto& [text, grouping, at] : rows) {
    const TExprView view = ViewExpression(text);
    EXPECT_EQ(grouping[0] != '\0', view.valid) << text;
    EXPECT_EQ(grouping, view.grouping) << text;
    EXPECT_EQ(at, view.faultAt) << text << ": " << view.fault;
  }
}

TEST(TavctlUpgrade, RefusesWhatIsNoWholeAgent) {
  const auto refused = [](const std::string& bytes) {
    TFailure failure;
    return CheckProgram(bytes, "f", failure) ? "taken" : failure.text;
  };
  const std::string good = ReadFile(AgentBinary());
  std::string arm = good;
  arm[18] = '\xB7';  // for another machine, so that it cannot be run here; it holds the mark
  for (const std::string& whole : {good, arm}) {
    EXPECT_EQ("taken", refused(whole));
    for (const size_t size : {size_t{100}, size_t{4096}, whole.size() / 2, whole.size() - 1})
      EXPECT_NE("taken", refused(whole.substr(0, size))) << size;
    // Magic, class, order, type, both tables, their count.
    for (const size_t at : {0u, 4u, 5u, 16u, 33u, 41u, 57u}) {
      std::string bad = whole;
      bad[at] = 99;
      EXPECT_NE("taken", refused(bad)) << at;
    }
  }
  EXPECT_THAT(refused(ReadFile("/bin/true")), HasSubstr("does not say"));
  EXPECT_NE("taken", refused(std::string(kLargestProgram + 1, 'x')));

  TFailure failure;
  EXPECT_FALSE(CheckMachine(arm, "Linux 6.1.0-13-amd64 #1 SMP", failure));
  EXPECT_TRUE(CheckMachine(arm, "Linux 6.1.0-13-arm64 #1 SMP", failure));
  EXPECT_TRUE(CheckMachine(good, "Linux 5.10.0 #1 SMP", failure));
}

TEST(TavctlFiles, AreWrittenWholeOrNotAtAll) {
  const TTree tree;
  TFailure failure;
  tree.Add("taken/");
  tree.Add("taken/x");
  EXPECT_FALSE(WriteWhole(tree.path + "taken", "new", 0600, failure));
  EXPECT_TRUE(WriteWhole(tree.path + "file", "new", 0600, failure));
  EXPECT_EQ(2, std::distance(std::filesystem::directory_iterator(tree.path), {}));
}

TEST(TavctlText, ReadsUnitsAndGuessesWords) {
  const std::tuple<TArgKind, std::string, std::string> rows[] = {
      {TArgKind::kSize, "4k", "4096"},          {TArgKind::kSize, "2M", "2097152"},
      {TArgKind::kSize, "3G", "refused"},       {TArgKind::kSize, "k", "refused"},
      {TArgKind::kSize, "1x", "refused"},       {TArgKind::kMinutes, "2h", "120"},
      {TArgKind::kMinutes, "90s", "refused"},   {TArgKind::kMinutes, "3d", "4320"},
      {TArgKind::kSeconds, "5m", "300.000000"}, {TArgKind::kSeconds, "2d", "refused"},
      {TArgKind::kPatience, "0", "refused"},    {TArgKind::kCount, "0", "refused"},
      {TArgKind::kSeconds, "0", "0.000000"},    {TArgKind::kName, "", "refused"},
  };
  for (const auto& [kind, given, plain] : rows) {
    std::string value = given;
    EXPECT_EQ(plain, PlainArg({"X", kind, ""}, value).empty() ? value : "refused") << given;
  }
  EXPECT_EQ("ping", Nearest("pign", {"info", "ping"}));
  EXPECT_EQ("", Nearest("xyz", {"info", "ping"}));
  EXPECT_EQ("/wA=", Base64(std::string("\xff\0", 2)));
}
