#pragma once

#include <memory>

#include "PLXNetworkingStream.h"
#include "PLXTokenizedString.h"

// One message's dialogue with a mail server (RFC 5321), from the greeting to the end of the connection. Used
// once, by one thread.
class PLXSMTPDialogue {
 public:
  // The lines end with the one that is a lone dot; an empty last token is no line. Everything must outlive
  // the dialogue. The connection belongs to the group.
  PLXSMTPDialogue(PLXString const& server_i, PLXString const& sender_i,
                  PLXTokenizedString const& recipients_i, PLXTokenizedString const& lines_i,
                  PLXNetworkingStreamGroup& group_io);

  // Empty when the server took the message over, else the reason why it did not.
  PLXString Run();

 private:
  enum State : unsigned {
    kGreeting = 0,
    kHello = 1,
    kRepeat = 2,  // no step leads there
    kMail = 3,
    kRecipients = 4,
    kData = 5,
    kMessage = 6,
    kQuit = 7,
    kEnd = 8
  };

  State Act();
  State SayHello();
  State NameNextRecipient();
  State SendMessage();
  State Quit();
  // Sends the command with the argument in it, as one line, and reads the reply.
  bool Ask(char const* command_i, PLXString const& argument_i);
  bool AskAgain();
  // Joins the bursts of one reply. False when the peer left before it began one.
  bool ReadReply();
  // Whether the last reply is of this hundred and complains about nothing. What it complains about otherwise
  // is added to the errors.
  bool IsReply(PLXUInt32 hundred_i);
  PLXString GetHost() const;

  PLXString const& myServer;
  PLXString const& mySender;
  PLXTokenizedString const& myRecipients;
  PLXTokenizedString const& myLines;
  PLXNetworkingStreamGroup& myGroup;
  std::unique_ptr<PLXNetworkingStream> myStream;
  PLXUInt16 myPort = 0;
  State myState = kGreeting;
  PLXString myCommand;  // the last one
  PLXUInt32 myNextRecipient = 0;
  PLXUInt32 myReplyCode = 0;
  bool myMessageIsOut = false;
  bool myMessageIsAccepted = false;
  unsigned myQuitCount = 0;
  PLXString myErrors;
};
