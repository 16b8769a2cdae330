#pragma once

#include <memory>

#include "PLXInternetObject.h"
#include "PLXString.h"

class PLXNetworkingStream;
class PLXPOP3Answer;

// What became of PLXPOP3::Connect.
inline constexpr PLXUInt32 kPOP3Result_Success = FourCC("Succ");
inline constexpr PLXUInt32 kPOP3Result_AlreadyConnected = FourCC("AlCo");
inline constexpr PLXUInt32 kPOP3Result_UnableToConnect = FourCC("UTCo");
inline constexpr PLXUInt32 kPOP3Result_UnknownUser = FourCC("UkUs");
inline constexpr PLXUInt32 kPOP3Result_InvalidPassword = FourCC("IvPs");
inline constexpr PLXUInt32 kPOP3Result_ConnectionTimedOut = FourCC("CnTi");  // Connect never gives it

// A mailbox on a mail server, by POP3 (RFC 1939) over plain TCP: logs in, sends commands, gives the server's
// answers as they came and leaves reading them to the caller.
//
// Where an answer ends. The server closing ends it at once. Else the message of a RETR ends with its lone
// dot, however long the server pauses before, the listing of UIDL, LIST, TOP or CAPA with its lone dot too,
// and every other answer with its line; where these do not come, after the silence limit below. For the
// answer's first byte there is no limit. Text that is no status line ends where the server first falls
// silent.
//
// Owns its connection; destruction closes it without a goodbye. One thread at a time.
class PLXPOP3 : public PLXInternetObject {
 public:
  // How long, in milliseconds, the server may be silent within an answer that is no message, and before its
  // answer to the goodbye.
  static constexpr PLXUInt32 kSilenceLimit_Answer = 10000;
  static constexpr PLXUInt32 kSilenceLimit_Goodbye = 60000;
  // The longest answers, in bytes, by what they are; one that goes on beyond is broken off, and the
  // connection with it. A listing has some eighty bytes for a message, and mail servers take no message half
  // as long.
  static constexpr PLXUInt32 kLongestAnswer_Line = 64 << 10;
  static constexpr PLXUInt32 kLongestAnswer_Listing = 64 << 20;
  static constexpr PLXUInt32 kLongestAnswer_Message = 512 << 20;

  PLXPOP3() noexcept;
  // The server is "host" or "host:port", port 110 unless said.
  PLXPOP3(PLXString const& popServer_i, PLXString const& username_i, PLXString const& password_i);
  PLXPOP3(PLXPOP3 const&) = delete;
  PLXPOP3& operator=(PLXPOP3 const&) = delete;
  ~PLXPOP3() override;

  void SetPOPServer(PLXString const& popServer_i) { myPOPServer = popServer_i; }
  void SetUsername(PLXString const& username_i) { myUsername = username_i; }
  void SetPassword(PLXString const& password_i) { myPassword = password_i; }
  void SetSilenceLimits(PLXUInt32 answer_i, PLXUInt32 goodbye_i) noexcept;

  // Connects and logs in with USER and PASS; one of the results above. Only an answer refuses: a server that
  // takes the connection and then closes it without a word is a success, which shows in the empty answers to
  // the commands. A connection that was once made stays, whatever the result, until Disconnect.
  PLXUInt32 Connect();
  // Why the last Connect was unable to, a constant; empty when it was able.
  char const* GetConnectProblem() const noexcept { return myConnectProblem; }

  // Sends the command as one line, with or without a line end of its own, and gives the whole answer: the
  // status line, and of a message or a listing the lines, their leading dots still doubled, and the lone dot.
  // An answer that was cut is given as far as it came; empty when nothing came and while not connected.
  PLXString SendPOPCommand(PLXString const& command_i);

  // Says goodbye, which is when the server deletes what it was told to, and closes. Nothing while not
  // connected.
  void Disconnect();

 private:
  // Sends a command of the login. False when it is refused.
  bool LogIn(PLXString const& command_i);
  bool IsRefused();
  // To a command line; an empty one is the greeting's.
  PLXPOP3Answer ReadAnswer(PLXString const& line_i);

  std::unique_ptr<PLXNetworkingStream> myStream;  // null while not connected
  PLXString myPOPServer;
  PLXString myUsername;
  PLXString myPassword;
  char const* myConnectProblem = "";
  PLXUInt32 mySilenceLimit_Answer = kSilenceLimit_Answer;
  PLXUInt32 mySilenceLimit_Goodbye = kSilenceLimit_Goodbye;
};
