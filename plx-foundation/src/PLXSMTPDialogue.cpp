#include "PLXSMTPDialogue.h"

#include <algorithm>

#include "PLXHeaderText.h"
#include "PLXSMTPReply.h"
#include "PLXStringUtility.h"

// The dialogue as a state machine: each round looks at the last reply first, then does what the state says.
//
//   C: HELO us          S: 250 them
//   C: MAIL FROM: <a>   S: 250
//   C: RCPT TO: <b>     S: 250        once for each recipient
//   C: DATA             S: 354
//   C: lines, a dot, QUIT
//                       S: 250        the reply to the dot
//
// A server that did not ask for the message with 354 is never sent it: it would read the lines as commands.

namespace {

constexpr char ourSourceFile[] = "src/PLXEmailSendThread.cpp";

constexpr PLXUInt16 kSMTPPort = 25;
constexpr PLXUInt32 kReadyReply = 220;
constexpr PLXUInt32 kNoHundred = 10;            // of which no reply is
constexpr PLXUInt32 kPieceSize = 32768;         // bytes of the message handed over at once
constexpr PLXUInt32 kLongestAnswer = 131072;    // bytes; a reply and what else comes with it
constexpr PLXUInt32 kRestOfReplyLimit = 60000;  // milliseconds that a reply which has begun may pause
constexpr unsigned kMaximumQuitCount = 2;       // a server that complains about QUIT is asked no third time

// |%param%| is replaced by the argument. Only five of them are ever sent.
constexpr char kHelloCommand[] = "HELO |%param%|\r\n";
[[maybe_unused]] constexpr char kResetCommand[] = "RSET\r\n";
constexpr char kMailCommand[] = "MAIL FROM: <|%param%|>\r\n";
[[maybe_unused]] constexpr char kSendCommand[] = "SEND FROM: <|%param%|>\r\n";
[[maybe_unused]] constexpr char kSendOrMailCommand[] = "SOML FROM: <|%param%|>\r\n";
[[maybe_unused]] constexpr char kSendAndMailCommand[] = "SAML FROM: <|%param%|>\r\n";
constexpr char kRecipientCommand[] = "RCPT TO: <|%param%|>\r\n";
constexpr char kDataCommand[] = "DATA\r\n";
constexpr char kQuitCommand[] = "QUIT\r\n";
constexpr char kParameter[] = "|%param%|";

struct Complaint {
  PLXUInt32 code;
  char const* text;
};
constexpr Complaint kComplaints[] = {{421, "421- Service Not Available"},
                                     {450, "450- Mailbox Unavailable"},
                                     {451, "451- Local Processing Error"},
                                     {452, "452- Insufficient System Storage"},
                                     {500, "500- Unrecognized Command"},
                                     {501, "501- Syntax Error In Arguments"},
                                     {502, "502- Command Not Implemented"},
                                     {503, "503- Bad Command Sequence"},
                                     {504, "504- Command Parameter Not Implemented"},
                                     {550, "550- Mailbox Unavailable"},
                                     {551, "551- User Not Local"},
                                     {552, "552- Insufficient System Storage"},
                                     {553, "553- Mailbox Name Syntax Error"},
                                     {554, "554- Transaction Failed"}};

char const* FindComplaint(PLXUInt32 code_i) noexcept {
  auto const* const found = std::find_if(std::begin(kComplaints), std::end(kComplaints),
                                         [code_i](Complaint const& row) { return row.code == code_i; });
  return found == std::end(kComplaints) ? nullptr : found->text;
}

}  // namespace

PLXSMTPDialogue::PLXSMTPDialogue(PLXString const& server_i, PLXString const& sender_i,
                                 PLXTokenizedString const& recipients_i, PLXTokenizedString const& lines_i,
                                 PLXNetworkingStreamGroup& group_io)
    : myServer(server_i),
      mySender(sender_i),
      myRecipients(recipients_i),
      myLines(lines_i),
      myGroup(group_io) {}

PLXString PLXSMTPDialogue::Run() {
  PLXIPAddress address;
  if (!PLXNetworkingStream::ResolveDomainName(myServer, kSMTPPort, address, myPort)) {
    return "DNS lookup failed (" + myServer + ")";
  }
  myStream.reset(PLXNetworkingStream::Open(address, myPort, true, false, &myGroup));
  if (myStream == nullptr) {
    myState = kEnd;
  } else {
    myStream->SetAnswerLimits(kLongestAnswer);
  }
  while (myState != kEnd) myState = Act();
  myStream.reset();
  if (myErrors.IsNotEmpty() || myMessageIsAccepted) return myErrors;
  return "Unable to connect to server (" + GetHost() + ":" +
         PLXStringUtility::GetStringRepresentation(static_cast<unsigned int>(myPort)) + ")";
}

PLXSMTPDialogue::State PLXSMTPDialogue::Act() {
  switch (myState) {
    case kGreeting:
      if (!ReadReply()) return kEnd;
      if (myReplyCode == kReadyReply) return kHello;
      IsReply(kNoHundred);
      return FindComplaint(myReplyCode) != nullptr ? kEnd : kQuit;
    case kHello:
      return SayHello();
    case kRepeat:
      return !AskAgain() ? kEnd : IsReply(2) ? kMail : kQuit;
    case kMail:
      return !Ask(kMailCommand, mySender) ? kEnd : IsReply(2) ? kRecipients : kQuit;
    case kRecipients:
      return NameNextRecipient();
    case kData:
      return Ask(kDataCommand, PLXString()) && IsReply(3) ? kMessage : kQuit;
    case kMessage:
      return SendMessage();
    case kQuit:
      return Quit();
    case kEnd:
      return kEnd;
  }
  PLXFailUnexpectedState(ourSourceFile, "unexpected SMTP processing state");
}

PLXSMTPDialogue::State PLXSMTPDialogue::SayHello() {
  PLXString name;
  if (!PLXNetworkingStream::GetDomainName(name) && !PLXNetworkingStream::GetHostName(name)) return kQuit;
  return !Ask(kHelloCommand, name) ? kEnd : IsReply(2) ? kMail : kQuit;
}

PLXSMTPDialogue::State PLXSMTPDialogue::NameNextRecipient() {
  PLXString recipient;
  while (recipient.IsEmpty()) {
    if (myNextRecipient == myRecipients.GetTokenCount()) return kData;
    recipient = myRecipients.GetToken(myNextRecipient++);
    recipient.Trim(" \t\r\n");
  }
  return Ask(kRecipientCommand, recipient) && IsReply(2) ? kRecipients : kEnd;
}

// A server that leaves or complains meanwhile shows in the next reply.
PLXSMTPDialogue::State PLXSMTPDialogue::SendMessage() {
  PLXString piece;
  piece.Reserve(2 * kPieceSize);
  PLXUInt32 const count = myLines.GetTokenCount();
  for (PLXUInt32 index = 0; index < count; ++index) {
    PLXString const line = myLines.GetToken(index);
    if (index + 1 == count && line.IsEmpty()) break;
    piece.ReserveToAppend(line.GetLength() + 2);
    piece.Append(line).Append("\r\n");
    if (piece.GetLength() < kPieceSize) continue;
    if (!myStream->Write(piece)) return kEnd;
    piece.ReserveLength(0);
  }
  if (myStream->WaitForPeer(0)) {
    // An answer before the end of the message is none to the message, whatever it says.
    myStream->SetResponsePossibleFlag(true);
    if (ReadReply()) IsReply(kNoHundred);
    return kEnd;
  }
  if (!myStream->Write(piece)) return kEnd;
  myMessageIsOut = true;
  return kQuit;
}

// The first reply behind the message is the one to the message.
PLXSMTPDialogue::State PLXSMTPDialogue::Quit() {
  ++myQuitCount;
  if (!myStream->Write(kQuitCommand) || !ReadReply()) return kEnd;
  if (myMessageIsOut && myQuitCount == 1) {
    myMessageIsAccepted = IsReply(2);
    return myMessageIsAccepted ? kEnd : kQuit;
  }
  if (FindComplaint(myReplyCode) == nullptr) return kEnd;
  IsReply(2);
  return myQuitCount < kMaximumQuitCount ? kQuit : kEnd;
}

bool PLXSMTPDialogue::Ask(char const* command_i, PLXString const& argument_i) {
  myCommand = command_i;
  myCommand.ReplaceAll(kParameter, GetHeaderText(argument_i));
  return AskAgain();
}

bool PLXSMTPDialogue::AskAgain() { return myStream->Write(myCommand) && ReadReply(); }

bool PLXSMTPDialogue::ReadReply() {
  myReplyCode = 0;
  bool const isIntact = myStream->ReadResponse();
  PLXSMTPReply reply;
  reply.Append(myStream->GetWholeResponse());
  // A server that goes without reading QUIT breaks the connection, but the reply before it was given.
  if (!isIntact && !reply.IsComplete()) return false;
  while (!reply.IsComplete() && !reply.IsTooLong() && myStream->WaitForPeer(kRestOfReplyLimit)) {
    myStream->SetResponsePossibleFlag(true);
    if (!myStream->ReadResponse()) break;
    reply.Append(myStream->GetWholeResponse());
  }
  myReplyCode = reply.GetCode();
  return true;
}

bool PLXSMTPDialogue::IsReply(PLXUInt32 hundred_i) {
  char const* const complaint = FindComplaint(myReplyCode);
  if (complaint == nullptr && myReplyCode / 100 == hundred_i) return true;
  if (complaint != nullptr) {
    myErrors += complaint;
  } else if (myReplyCode >= 100 && myReplyCode < 1000) {
    myErrors.Append(PLXStringUtility::GetStringRepresentation(myReplyCode)).Append("- Unexpected Reply");
  }
  return false;
}

PLXString PLXSMTPDialogue::GetHost() const {
  PLXUInt32 colon = 0;
  return myServer.Find(':', 0, kPLXWholeLength, 0, colon) ? myServer.GetSubstring(0, colon) : myServer;
}
