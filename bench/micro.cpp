// Times what the agent spends its time on: keys, packet bodies, whole packets, checksums, searches of folders and
// of text.

#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "checks/filetests.h"
#include "checks/linefilter.h"
#include "core/closers.h"
#include "core/filesearch.h"
#include "core/writeall.h"
#include "protocol/bvrequest.h"
#include "protocol/ciplib.h"
#include "protocol/tav_const.h"
#include "protocol/tavreply.h"

namespace {

const String kPassword("a password of some length"), kSessionKey("0123456789abcdef");

String Bytes(int64_t n) {
  String bytes;
  for (int64_t i = 0; i < n; ++i) bytes.AddChar(static_cast<char>(i * 131 >> 3));
  return bytes;
}

String Packet(const String& text) {
  const String proof = EncodePswd(kPassword), key = EncodeData(kSessionKey, kPassword, 0);
  const String request = EncodeData(text, kSessionKey, 0);
  String body(kSignature, SIZELEN_AUTH);
  body += EncodeLength(proof, SIZELEN_PSWD) + proof + EncodeLength(key, SIZELEN_KEY) + key;
  body += EncodeLength(request, SIZELEN_REQUEST) + request;
  return EncodeLength(body, SIZELEN_PACKET) + body;
}

void PrepareKey(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(TCipherKey(kSessionKey));
}
BENCHMARK(PrepareKey);

void DecryptBody(benchmark::State& state) {
  const TCipherKey key(kSessionKey);
  String body = Bytes(state.range(0));
  for (auto _ : state) key.Decrypt(body.Data(), body.Data(), body.Length());
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(DecryptBody)->Arg(64)->Arg(4096)->Arg(1 << 20);

void OpenRequestAndSealReply(benchmark::State& state) {
  const TPasswordKeys keys(kPassword);
  const String packet = Packet("TEST-FileExists\r\n/var/log/syslog\r\n");
  for (auto _ : state) {
    BVRequest request(packet);
    if (!request.ParseInitRequest(keys, in_addr{})) abort();
    TAVReply reply;
    reply.InitPacket(nullptr, request);
    reply.SetResult("200");
    reply.AddIntParam(123456LL);
    reply.FinalizePacket();
    benchmark::DoNotOptimize(reply.Text().Data());
  }
}
BENCHMARK(OpenRequestAndSealReply);

void ListReply(benchmark::State& state) {
  for (auto _ : state) {
    TAVReply reply;
    reply.SetResult("200");
    for (int64_t i = 0; i < state.range(0); ++i) reply.AddStringParam("a file of middling name.log", 0);
    benchmark::DoNotOptimize(reply.Text().Data());
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(ListReply)->Arg(100)->Arg(100000);

void ChecksumBlock(benchmark::State& state) {
  const String block = Bytes(state.range(0));
  TCRC32 crc;
  for (auto _ : state) benchmark::DoNotOptimize(crc.GetBlockCRC(block.Data(), block.Length()));
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK(ChecksumBlock)->Arg(2048)->Arg(1 << 20);

void ChecksumFile(benchmark::State& state) {
  char path[] = "/tmp/tav-bench-XXXXXX";
  const TFd file(mkstemp(path));
  const String content = Bytes((16 << 20) + 1);
  if (!file.IsOpen() || !WriteAll(file.Get(), content.Data(), content.Length())) abort();
  unsigned int crc = 0;
  String error;
  for (auto _ : state) {
    if (!GetFileCRC(path, &crc, error)) abort();
  }
  state.SetBytesProcessed(state.iterations() * content.Length());
  unlink(path);
}
BENCHMARK(ChecksumFile)->Unit(benchmark::kMillisecond);

void SearchFolder(benchmark::State& state) {
  int64_t entries = 0;
  for (auto _ : state) {
    TSearchRec rec;
    TSearchGuard guard(rec);
    for (int found = FindFirst("/usr/bin", "*", AttrAnyFile, rec); found == 0; found = FindNext(rec)) ++entries;
  }
  state.SetItemsProcessed(entries);
}
BENCHMARK(SearchFolder)->Unit(benchmark::kMicrosecond);

void SumFolder(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(GetFolderSize("/usr/share", 1));
}
BENCHMARK(SumFolder)->Unit(benchmark::kMillisecond);

void TestLogLines(benchmark::State& state) {
  TLineFilter filter("'error' and not ('timeout' or 'retry')", 1, 0, 0);
  const std::string line = "2026-11-22 10:00:00 daemon[4711]: an Error of no importance on a line of usual length";
  for (auto _ : state) benchmark::DoNotOptimize(filter.Search(line.data(), static_cast<int>(line.size())));
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(line.size()));
}
BENCHMARK(TestLogLines);

}  // namespace

int main(int argc, char** argv) {
  Twofish_initialise();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
