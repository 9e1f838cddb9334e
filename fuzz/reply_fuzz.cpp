// What the agent puts into a reply the client takes out of it; what it takes for a reply it gives back whole.
//
//   input := key "|" code { "|" value }      each value goes as a text and as every number that it can be
#include <time.h>

#include "client/reply.h"
#include "fuzz/law.h"
#include "protocol/tav_const.h"
#include "protocol/tavreply.h"

static TReply Parsed(const std::string& text, bool isReply) {
  TReply reply;
  TFailure failure;
  const bool parsed = ParseReply(text, reply, failure);
  std::string again = reply.code + "\n";
  for (const std::string& line : reply.lines) again += line + "\n";
  Require(parsed ? again + "\r" == text : !isReply);
  return reply;
}

static void CheckValue(TAVReply& reply, const std::string& value) {
  const int before = reply.Length();
  const long long number = strtoll(value.c_str(), nullptr, 10);
  const time_t when = llabs(number / 2) % 253402000000;  // before the year 10000
  char time[32];
  tm local;
  strftime(time, sizeof time, "%Y-%m-%d %H:%M:%S", localtime_r(&when, &local));
  reply.AddStringParam(Bytes(value), 1);
  reply.AddIntParam(number);
  reply.AddIntParam(int(number));
  reply.AddBoolParam(int(number));
  reply.AddRealParam(double(number) / 16);  // four decimals hold it
  reply.AddTimeParam(when);

  const TReply parsed = Parsed("200\n" + Std(reply.Text().Copy(before + 1, reply.Length())) + "\r", true);
  TReader reader(parsed);
  Require(reader.Decoded("text") == Std(tavDecodeStrings(Bytes(value))));
  Require(reader.Number("64 bits") == number && reader.Number("32 bits") == int(number));
  Require(reader.Flag("flag") == (int(number) != 0) && reader.Real("real") == double(number) / 16);
  Require(reader.When("time") == time && parsed.lines.size() == 6);
}

TAV_LAWS(reply)(std::string input) {
  Twofish_initialise();
  Parsed(input, false);
  const String key = Bytes(Cut(input, '|'));
  const std::string code = Cut(input, '|').c_str();
  TAVReply reply;
  reply.InitPacket(nullptr, key);
  reply.SetResult(code.c_str());
  for (int i = 0; i < 64 && !input.empty(); i++) CheckValue(reply, Cut(input, '|'));
  const std::string text = Std(reply.Text()) + "\r";
  Parsed(text, code.size() == 3 && strspn(code.c_str(), "0123456789") == 3);
  reply.FinalizePacket();
  const String packet = reply.Text();
  Require(DecodeLength(packet.Data(), 4) == int(text.size()));
  Require(Std(DecodeData(packet.Copy(5, packet.Length()), key)) == text);
}
