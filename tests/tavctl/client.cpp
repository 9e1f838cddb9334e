#include "client.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <sstream>

void Tavctl::WriteSecret(const std::string& file, const std::string& content) const {
  agent.Write(file, content);
  chmod(agent.At("@/" + file).c_str(), 0600);
}

Ran Tavctl::Run(const std::string& line, const std::string& before) const {
  return RunBare("-p " + std::to_string(agent.port) + " --password-file @/pw " + line, before);
}

Ran Tavctl::RunBare(const std::string& line, const std::string& before) const {
  const std::string place = "cd @ && env -u TAV_PASSWORD -u TAV_PASSWORD_FILE -u CREDENTIALS_DIRECTORY HOME=@ ";
  const std::string command = agent.At(place) + "setsid " + agent.At(before) + " " TAVCTL_BINARY " " +
                              agent.At(line + " >@/out 2>@/err </dev/null");
  Ran ran;
  const int wait = system(command.c_str());
  ran.status = WIFEXITED(wait) ? WEXITSTATUS(wait) : 256 + WTERMSIG(wait);
  ran.out = agent.Read("out");
  ran.err = agent.Read("err");
  return ran;
}

void Tavctl::Expect(const std::vector<Asked>& rows) const {
  for (const Asked& row : rows) {
    const Ran ran = Run(row.line);
    const std::string all = ran.out + ran.err;
    EXPECT_EQ(row.status, ran.status) << row.line << "\n" << all;
    EXPECT_THAT(all, HasSubstr(agent.At(row.says))) << row.line;
    EXPECT_THAT(all, Not(HasSubstr(agent.password))) << row.line;
  }
}

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}
