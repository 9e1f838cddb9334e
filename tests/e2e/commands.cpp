#include "commands.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>

namespace {

// "T" stands for the port of a counterpart by TCP, "U" for one by UDP.
const char kCommands[] = R"(
  unc TEST-UNC|@/t => ~200| *\d{5,}| *\d+| *\d+|\d+
  - TEST-DiskSpace => 500|Not applicable for UNIX/Linux
  foldersize TEST-FolderSize|@/t|1 => 200|    19
  foldersize TEST-FolderSize|@/t/%newestfolder%/*.txt|1||||||1 => 200|     6
  fileexists TEST-FileExists|@/t/a* => ~200|    10|\d{14}|\d{14}|@/t/a.txt|min|90
  fileexists TEST-FileExists|@/t/%newestfolder%/%oldestfile%||||||1 => ~200|     5|\d{14}|05032009140709|@/t/s/b.txt|min|\d{7}
  comparefiles TEST-FileCompare|1|@/x|@/y|0|0|1 => 200|1
  comparefiles TEST-FileCompare|2|@/y|@/x => 200|1
  comparefiles TEST-FileCompare|3|@/y|cde|1|0 => 200|1
  filecrc TEST-FileCRC|@/crc => 200|2023187561
  countfiles TEST-CountFiles|@/t|*|1|0|0 => 200|4
  countfiles TEST-CountFiles|@/t|*|1|5|0 => 200|2
  countfiles TEST-CountFiles|@/t|*|0|1|60 => 200|1
  countfiles TEST-CountFiles|@/t|*|1|3|2 => 200|3
  countfiles TEST-CountFiles|@/deep|*|1|0|0 => 200|1
  process TEST-Process||one $(echo a b) => 200|3
  - TEST-Service => 500|Not applicable for UNIX/Linux
  - TEST-NTLog => 500|Not applicable for UNIX/Linux
  cpuusage TEST-CPU => 200|12.5000
  - TEST-PerfCounter => 500|Not applicable for UNIX/Linux
  - TEST-Script => 500|not implemented yet
  - TEST-SNMP => 500|not implemented yet
  external TEST-ExternalPrg|sh -c 'exit 3'|||0 => 200|3
  external TEST-ExternalPrg|/no/such|||-1 => 301|exec error
  - TEST-Ping => 500|not implemented yet
  tcp TEST-TCP|127.0.0.1|T|5000|PING|4 => ~200|\d+|PONG
  tcp TEST-TCP|localhost|T|5000||4 => ~200|\d+|PONG
  udp TEST-UDP|127.0.0.1|U|5000|1|x|3 => ~200|\d+|PON
  textlog TEST-TextLog2|@/lines.txt|0|1|1|1|'alpha' or 'x'|1|1|0|1|'beta'|1|1|0 => ~200|     1|alpha beta 12345|0|    25|[-\d| ]*@/lines.txt
  textlog TEST-TextLog2|@/t/*.txt|0|1|1|1|34|0|0|0| => ~200|     4|012345678|0|    10|[-\d| ]*@/t/a.txt
  shellscript TEST-ShellScript|sh %script% %params% |echo a%0D%0Aecho scriptres:5 $1%0D%0Aecho b|p|5|1 => 200|scriptres:5 p|a%0D%0A
  executeaction ACT-ExternalCmd|test -f a.txt|@/t|0|0 => 200|0
  tcpudpaction ACT-TCPUDPsend|127.0.0.1|T|0|x|0| => 200|Data has been sent
  tcpudpaction ACT-TCPUDPsend|127.0.0.1|U|1|x|0|y => 200|Data has been sent
  syslogaction ACT-Syslog|127.0.0.1|U|1|5|disk full => 200|Syslog: Data to 127.0.0.1 has been sent
  process GetProcessesList => 200|a%0D%0Ab%0D%0Ab%0D%0A
  - GetServicesList => 500|Not applicable for UNIX/Linux
  - GetEventLogFiles => 500|Not applicable for UNIX/Linux
  - GetEventLogSources => 500|Not applicable for UNIX/Linux
  - GetDriveList => 500|not implemented yet
  foldersize,countfiles,fileexists,filecrc,comparefiles,textlog GetFilesList|@/t/*||1|1|1|1|1|0|0 => ~200|@/t/|3|3(|[as.][.tx]*|\d+| *\d+){3}
  foldersize,countfiles,fileexists,filecrc,comparefiles,textlog GetFilesList|@/t/s/*.h|*.txt|0|1|1|1|1|0|1 => 200|@/t/s/|1|4|b.txt|0|     5|05032009140709
  - NoSuchCommand => 500)";

}  // namespace

Counterpart::Counterpart(bool isTcp)
    : tcp(isTcp), socket(isTcp ? ServeTcp() : ServeUdp()), thread([this] { Run(); }) {}

Counterpart::~Counterpart() {
  over = true;
  thread.join();
}

void Counterpart::Run() const {
  for (pollfd wait{socket.Descriptor(), POLLIN, 0}; !over;) {
    if (poll(&wait, 1, 50) != 1) continue;
    if (tcp) {
      const Socket client = Accept(socket);
      client.Send("PONG");
      client.Receive(5);
    } else {
      TakeAndAnswer(socket, "PONG");
    }
  }
}

std::vector<Question> Questions(const std::string& table) {
  std::vector<Question> out;
  for (const Exchange& row : Rows(table)) {
    const size_t blank = row.request.find(' ');
    out.push_back({row.request.substr(0, blank), row.request.substr(blank + 1), row.reply});
  }
  return out;
}

std::vector<Question> EveryCommand(const Counterpart& tcp, const Counterpart& udp) {
  return Questions(Replaced(Replaced(kCommands, "|T|", "|" + tcp.Port() + "|"), "|U|", "|" + udp.Port() + "|"));
}

std::string LayOut(const Agent& agent) {
  agent.Write("t/a.txt", "012345678\n", 90);
  agent.Write("t/s/b.txt", "01234");
  agent.Write("t/s/.h", "012");
  agent.Write("t/s/u/c.txt", "0");
  std::string deep = "deep";  // deeper than a walk keeps folders open
  for (int level = 0; level < 34; ++level) deep += "/d";
  agent.Write(deep + "/f", "");
  agent.Write("crc", std::string(2049, 'x'));
  agent.Write("x", "abc");
  agent.Write("y", "abcdef");
  agent.Write("lines.txt", "alpha beta 12345\nthe end\n");
  agent.Write("n.sh", "#!/bin/sh\necho $#\n");
  agent.Write("cpu.sh", "#!/bin/sh\necho 12.5 %\n");
  agent.Write("list.sh", "#!/bin/sh\nprintf 'a\\nb\\n'\n");
  const timespec march[2] = {{1236251229, 0}, {1236251229, 0}};  // 5 March 2009 14:07:09 in the agent's zone
  utimensat(AT_FDCWD, agent.At("@/t/s/b.txt").c_str(), march, 0);
  return agent.At(
      "proccntscript=@/n.sh\ncpuusagescript=@/cpu.sh\nproclistscript=@/list.sh\n"
      "executeaction=1\ntcpudpaction=1\nsyslogaction=1\n");
}
