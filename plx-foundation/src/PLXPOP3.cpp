#include "PLXPOP3.h"

#include "PLXNetworkingStream.h"
#include "PLXPOP3Answer.h"

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

// Any line end within would begin a command of its own.
PLXString GetCommandLine(PLXString const& command_i) {
  PLXString line(command_i);
  line.ReplaceAll("\r", PLXString());
  line.ReplaceAll("\n", PLXString());
  return line + kLineEnd;
}

PLXUInt32 LongestAnswerTo(PLXString const& line_i) {
  switch (PLXPOP3Answer::OfAnswerTo(line_i)) {
    case PLXPOP3Answer::End::Listing:
      return PLXPOP3::kLongestAnswer_Listing;
    case PLXPOP3Answer::End::Message:
      return PLXPOP3::kLongestAnswer_Message;
    default:
      return PLXPOP3::kLongestAnswer_Line;
  }
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
  myConnectProblem = "DNS lookup failed";
  if (!PLXNetworkingStream::ResolveDomainName(myPOPServer, kPOP3Port, myAddress, myPort)) {
    return kPOP3Result_UnableToConnect;
  }
  myStream.reset(PLXNetworkingStream::Open(myAddress, myPort, true, false));
  myConnectProblem = myStream == nullptr ? "No socket could be made" : myStream->GetConnectProblem();
  if (myStream == nullptr) return kPOP3Result_UnableToConnect;
  myStream->SetAnswerLimits(kLongestAnswer_Line);
  if (!myStream->IsConnected()) return kPOP3Result_UnableToConnect;
  if (IsRefused()) {
    myConnectProblem = "Refused by the greeting";
    return kPOP3Result_UnableToConnect;
  }
  if (!LogIn("USER " + myUsername)) return kPOP3Result_UnknownUser;
  if (!LogIn("PASS " + myPassword)) return kPOP3Result_InvalidPassword;
  return kPOP3Result_Success;
}

bool PLXPOP3::LogIn(PLXString const& command_i) {
  myStream->Write(GetCommandLine(command_i));
  return !IsRefused();
}

bool PLXPOP3::IsRefused() {
  PLXPOP3Answer const answer = ReadAnswer(PLXString());
  return answer.GetText().IsNotEmpty() && !answer.IsPositive();
}

PLXString PLXPOP3::SendPOPCommand(PLXString const& command_i) {
  if (myStream == nullptr) return PLXString();
  PLXString const line = GetCommandLine(command_i);
  myStream->SetAnswerLimits(LongestAnswerTo(line));
  myStream->Write(line);
  return ReadAnswer(line).GetText();
}

void PLXPOP3::Disconnect() {
  if (myStream == nullptr) return;
  myStream->SetAnswerLimits(kLongestAnswer_Line);
  myStream->Write(GetCommandLine("QUIT"));
  if (myStream->WaitForPeer(mySilenceLimit_Goodbye)) ReadAnswer(PLXString());
  myStream.reset();
}

// Joins bursts until the answer is complete. What came before a failure counts.
PLXPOP3Answer PLXPOP3::ReadAnswer(PLXString const& line_i) {
  PLXPOP3Answer answer(PLXPOP3Answer::OfAnswerTo(line_i));
  PLXString const end = answer.GetEndText();
  bool isIntact = myStream->ReadResponse(end);
  answer.Append(myStream->GetWholeResponse());
  for (PLXUInt16 left = kMaximumBurstCount; isIntact && !answer.IsComplete() && --left > 0;) {
    if (!answer.IsUnhurried() && !myStream->WaitForPeer(mySilenceLimit_Answer)) break;
    myStream->SetResponsePossibleFlag(true);
    isIntact = myStream->ReadResponse(end);
    if (!answer.Append(myStream->GetWholeResponse())) break;
  }
  return answer;
}
