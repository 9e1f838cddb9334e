#include "client.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>

Client::Client(const Agent& of) : agent(of) {
  agent.Write("pw", agent.password + "\n");
  chmod(agent.At("@/pw").c_str(), 0600);
}

Ran Client::Run(const std::string& line, const std::string& before) const {
  return RunBare("-p " + std::to_string(agent.port) + " --password-file @/pw " + line, before);
}

Ran Client::RunBare(const std::string& line, const std::string& before) const {
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
