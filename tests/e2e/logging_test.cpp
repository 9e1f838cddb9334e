// Messages: which file gets which type, how a line looks, and that a peer cannot forge one.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <regex>
#include <sstream>

#include "agent_fixture.h"

namespace {

// The text without the stamps of its lines and with "|" for the line ends; what has no proper stamp shows.
std::string Logged(const std::string& text, const char* stamp) {
  const std::string clock = "[0-2][0-9]:[0-5][0-9]:[0-5][0-9]\\]\t ";
  return Replaced(Replaced(std::regex_replace(text, std::regex(stamp + clock), ""), "\n", "|"), "127.0.0.1\t ",
                  "*");
}

const char kFile[] = "\\[[01][0-9]/[0-3][0-9]/20[0-9]{2} ", kConsole[] = "\\[tav\\]\\[";
const std::string kListens = "tav\t\t Listening...|", kClosed = "|tav\t\t Session closed, wait for next ..|";

// One after the other, so that their messages do not mix.
void AskInTurn(const Agent& agent, const std::vector<Packet>& packets) {
  for (const Packet& packet : packets) {
    const size_t sessions = agent.Count("Session closed");
    {
      const Socket socket = Connect(agent.port);
      socket.Send(packet.Bytes());
      ReadReply(socket);
    }
    EXPECT_TRUE(WaitFor([&] { return agent.Count("Session closed") > sessions; }));
  }
}

Packet Text(const std::string& text) {
  return Seal(text, "secret");
}

TEST(Logging, EachTypeGoesToItsFiles) {
  Agent agent("logsuccess=1\nverboselogfile=verbose.log\nbadlogfile=@/tmp/bad\n", {"-i", "-v"});
  AskInTurn(agent,
            {Text("GetInfo\r\n"), Text("No%sSuch\r\n"), Text("\r\n"), Text("GetInfo"), Text("ACT-Syslog\r\n")});
  const std::string accepted = "*TCP connection accepted|",
                    correct = accepted + "*<-- Correct BV request received|*";
  const std::string failed = "|*--> request rejected or operation failed (";
  const std::string verbose = kListens + correct + "--> request processed (200)" + kClosed + correct +
                              "Unknown command \"No%sSuch\"" + failed + "500)" + kClosed + correct +
                              "Void request received" + failed + "500)" + kClosed + correct +
                              "EndOfTransmission signal missed" + failed + "502)" + kClosed + correct +
                              "--> request processed (600)" + kClosed;
  EXPECT_EQ(Replaced("-----", "-", accepted), Logged(agent.Read("log1.txt"), kFile));
  EXPECT_EQ("*Unknown command \"No%sSuch\"|*Void request received|*EndOfTransmission signal missed|",
            Logged(agent.Read("tmp/bad"), kFile));
  EXPECT_EQ(verbose, Logged(agent.Read("verbose.log"), kFile));
  const std::string console = Logged(agent.Console(), kConsole);
  EXPECT_EQ(verbose, console.substr(console.find(kListens)));
  struct stat log;
  EXPECT_TRUE(stat(agent.At("@/verbose.log").c_str(), &log) == 0 && (log.st_mode & 07) == 0)
      << "nobody else reads it";
}

TEST(Logging, SwitchesAndVerbosityDecide) {
  const Agent quiet("logfails=0\nverboselogfile=verbose.log\n"),
      detailed("verboselogfile=verbose.log\n", {"-i", "-vd"});
  AskInTurn(quiet, {Text("NoSuch\r\n")});
  for (const char* file : {"log1.txt", "log2.txt", "verbose.log"}) EXPECT_EQ("", quiet.Read(file)) << file;
  AskInTurn(detailed, {Text("GetInfo\r\n"), Seal("GetInfo\r\n", "wrong")});
  const std::string sizes =
      "*TCP connection accepted|*<-- TCP packet size: 52|*<-- TAV packet size: 48|"
      "*<-- Pswd size: 16|*<-- Key size: 13|*<-- Req size: 9|*<-- ";
  EXPECT_EQ(kListens + sizes + "Correct BV request received|*--> request processed (200)" + kClosed + sizes +
                "Wrong password or MD5 error|*<-- Invalid BV request received" + kClosed,
            Logged(detailed.Read("verbose.log"), kFile));
}

TEST(Logging, APeersTextIsMadeHarmlessAndCut) {
  Agent agent("");
  std::vector<Packet> packets = {Text("A\x1B[2J\x01\rB\x7F\r\n"), Text(std::string(2000, 'x') + "\r\n")};
  for (size_t size = 430; size < 500; ++size) packets.push_back(Text(std::string(size, 'x') + "\r\n"));
  AskInTurn(agent, packets);
  const std::string log = agent.Read("log2.txt");
  EXPECT_EQ(0u, Logged(log, kFile).find("*Unknown command \"A?[2J??B?\"|*Unknown")) << log;
  std::istringstream lines(log);
  size_t count = 0;
  for (std::string line; std::getline(lines, line); ++count) {
    EXPECT_TRUE(line.size() < 512) << line;
    EXPECT_TRUE(line.find("Unknown", 40) == std::string::npos) << line;
  }
  EXPECT_EQ(packets.size(), count) << "cut or not, each is a line";
}

}  // namespace
