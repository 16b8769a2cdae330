#include "PLXPOP3.h"

#include <algorithm>
#include <iterator>

#include "PLXNetworkingStream.h"

//   S: +OK ready        as soon as the connection stands
//   C: USER ada         S: +OK
//   C: PASS secret      S: +OK
//   C: RETR 3           S: +OK, the message, a lone dot
//   C: QUIT             S: +OK

namespace {

constexpr PLXUInt16 kPOP3Port = 110;
constexpr unsigned int kThisMachine = 0x7F000001;
constexpr PLXUInt16 kMaximumBurstCount = 65535;  // of one answer
constexpr char kLineEnd[] = "\r\n";
constexpr char kLoneDot[] = "\r\n.\r\n";

bool BeginsWith(PLXString const& text_i, char const* word_i) {
  return text_i.BeginsWith(word_i, kPLXOption_IgnoreCase);
}

bool IsPositive(PLXString const& answer_i) { return BeginsWith(answer_i, "+OK"); }

// Any line end within would begin a command of its own.
PLXString GetCommandLine(PLXString const& command_i) {
  PLXString line(command_i);
  line.ReplaceAll("\r", PLXString());
  line.ReplaceAll("\n", PLXString());
  return line + kLineEnd;
}

}  // namespace

PLXPOP3::PLXPOP3() noexcept = default;
PLXPOP3::PLXPOP3(PLXString const& popServer_i, PLXString const& username_i, PLXString const& password_i)
    : myPOPServer(popServer_i), myUsername(username_i), myPassword(password_i) {}
PLXPOP3::~PLXPOP3() = default;

void PLXPOP3::SetSilenceLimits(PLXUInt32 answer_i, PLXUInt32 goodbye_i) noexcept {
  mySilenceLimit_Answer = answer_i;
  mySilenceLimit_Goodbye = goodbye_i;
}

PLXUInt32 PLXPOP3::Connect() {
  if (myStream != nullptr) return kPOP3Result_AlreadyConnected;
  myAddress.Set(kThisMachine);
  if (!PLXNetworkingStream::ResolveDomainName(myPOPServer, kPOP3Port, myAddress, myPort)) {
    return kPOP3Result_UnableToConnect;
  }
  myStream.reset(PLXNetworkingStream::Open(myAddress, myPort, true, false));
  if (myStream == nullptr || !myStream->IsConnected() || IsRefused()) return kPOP3Result_UnableToConnect;
  if (!LogIn("USER " + myUsername)) return kPOP3Result_UnknownUser;
  if (!LogIn("PASS " + myPassword)) return kPOP3Result_InvalidPassword;
  return kPOP3Result_Success;
}

bool PLXPOP3::LogIn(PLXString const& command_i) {
  myStream->Write(GetCommandLine(command_i));
  return !IsRefused();
}

bool PLXPOP3::IsRefused() {
  PLXString const answer = ReadAnswer(AnswerEnd::Line);
  return answer.IsNotEmpty() && !IsPositive(answer);
}

PLXString PLXPOP3::SendPOPCommand(PLXString const& command_i) {
  if (myStream == nullptr) return PLXString();
  PLXString const line = GetCommandLine(command_i);
  myStream->Write(line);
  return ReadAnswer(EndOfAnswerTo(line));
}

void PLXPOP3::Disconnect() {
  if (myStream == nullptr) return;
  myStream->Write(GetCommandLine("QUIT"));
  if (myStream->WaitForPeer(mySilenceLimit_Goodbye)) ReadAnswer(AnswerEnd::Line);
  myStream.reset();
}

PLXPOP3::AnswerEnd PLXPOP3::EndOfAnswerTo(PLXString const& line_i) {
  if (BeginsWith(line_i, "RETR")) return AnswerEnd::Message;
  // With a number behind them, the first two are answered with one line.
  constexpr char const* kListings[] = {"UIDL\r\n", "LIST\r\n", "CAPA\r\n", "TOP "};
  bool const isListing = std::any_of(std::begin(kListings), std::end(kListings),
                                     [&line_i](char const* start_i) { return BeginsWith(line_i, start_i); });
  return isListing ? AnswerEnd::Listing : AnswerEnd::Line;
}

// Joins bursts until the answer is complete.
PLXString PLXPOP3::ReadAnswer(AnswerEnd end_i) {
  PLXString const end = end_i == AnswerEnd::Line ? "\n" : kLoneDot;
  bool isIntact = myStream->ReadResponse(end);
  PLXString answer = myStream->GetWholeResponse();  // what came before a failure counts
  auto const isComplete = [&answer, end_i] {
    bool const isStatus = answer.IsNotEmpty() && (answer[0] == '+' || answer[0] == '-');
    bool const isLine = end_i == AnswerEnd::Line || !IsPositive(answer);
    return !isStatus || answer.EndsWith(isLine ? "\n" : kLoneDot);
  };
  for (PLXUInt16 left = kMaximumBurstCount; isIntact && !isComplete() && --left > 0;) {
    bool const isPatient = end_i == AnswerEnd::Message && IsPositive(answer);
    if (!isPatient && !myStream->WaitForPeer(mySilenceLimit_Answer)) break;
    myStream->SetResponsePossibleFlag(true);
    isIntact = myStream->ReadResponse(end);
    PLXString const burst = myStream->GetWholeResponse();
    if (burst.GetLength() > PLXNetworkingStream::kMaximumResponseLength - answer.GetLength()) break;
    answer.ReserveToAppend(burst.GetLength());
    answer += burst;
  }
  return answer;
}
