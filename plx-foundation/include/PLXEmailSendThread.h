#pragma once

#include "PLXEmail.h"
#include "PLXOutbox.h"
#include "PLXThread.h"
#include "PLXTokenizedString.h"

// What became of one attempt to send a message.
struct PLXEmailOutcome {
  enum Status {
    kSent,    // its server took it
    kFailed,  // it is stored, and the callback URL has taken note of it
    kKept,    // it was not taken, and is stored without anybody having taken note of it yet
    kLost     // it was not taken, and there is no place where it is kept
  };
  PLXEmailFields const& fields;  // without its message and attachments
  Status status = kKept;
  PLXString name{};            // under which it is stored, or would be; empty without a place for it
  PLXString reason{};          // why its server did not take it; empty when the attempt ended before
  PLXUInt32 size = 0;          // bytes of the text that was sent
  PLXUInt32 milliseconds = 0;  // of the dialogue with its server
};

// Watches messages being sent. Called on the threads that send, so on any and on many at once.
class PLXEmailObserver {
 public:
  // Both calls come for every attempt. What the outcome refers to is gone after the call.
  virtual void Begin() noexcept = 0;
  virtual void End(PLXEmailOutcome const& outcome_i) noexcept = 0;

 protected:
  ~PLXEmailObserver() = default;
};

// Sends one message on a thread of its own and reports the outcome.
//
// The message is a success only when the server answered its end with a positive reply. A new message that
// was delivered leaves no trace. One that was not is stored, whole and safe from a loss of power, as a file
// in the folder for failed mail, and then told to the callback URL by a POST with Status "F" and the reason.
// When a stored message is sent again, its file stays until the outcome is known: a success is told with
// Status "S" before the file goes, a failure puts the message as it was now sent in the file's place.
//
// From Keep on the message is in the folder's outbox, and so is every outcome until the callback URL has
// taken note of it. Whenever the process dies, the message is at its server, in the folder or in the outbox;
// only one that the disk takes neither there nor here is in memory alone, and tried again until it is stored.
class PLXEmailSendThread : public PLXThread {
 public:
  // Copies all fields.
  explicit PLXEmailSendThread(PLXEmailFields const& fields_i);

  // Builds a new message and puts it into the outbox. False when it could not be kept there; it may be sent
  // all the same. On the thread that hands it over; Run does it otherwise.
  bool Keep();
  // Sends at once, on the caller's thread.
  void RunHere() { Run(); }

  // Waits until all messages have been sent or stored, for `patience_i` milliseconds; then breaks off the
  // dialogues that still run, so that their messages are stored, and waits as long again. False when there
  // are threads left all the same. No message may be handed over any more.
  static bool WaitUntilAllSent(PLXUInt32 patience_i);

  // Watches every attempt that begins from now on; null for nobody. Must outlive the threads. Any thread.
  static void SetObserver(PLXEmailObserver* observer_i) noexcept;

 protected:
  void Run() override;
  // The new message's text, as the recipient is to have it. Takes the parts out of the fields.
  PLXString BuildMessage();
  // Doubles every dot at the start of a line (RFC 5321, section 4.5.2).
  static void PrepareMessageForOutput(PLXString& text_io);

 private:
  bool IsResend() const noexcept { return myFields.messageID.IsNotEmpty(); }
  bool HasFolder() const noexcept {
    return myFields.failedMailFolder.IsNotEmpty() && myFields.callbackURL.IsNotEmpty();
  }
  PLXString BuildHeader() const;
  // The stored message with a fresh header. `isWhole_o`: its end was found.
  PLXString BuildStoredMessage(bool& isWhole_o) const;
  // The dialogue with the server; empty when the message was accepted, else what went wrong. An empty last
  // token of the lines is no line.
  PLXString SendFormattedMessage(PLXTokenizedString const& recipients_i, PLXTokenizedString const& lines_i);
  void ReportSuccess(bool isWhole_i);
  // What became of the message.
  PLXEmailOutcome::Status ReportFailure(PLXTokenizedString const& lines_i, bool isWhole_i,
                                        PLXString const& error_i);
  // `name_io` is the name that the message is stored by, or would be. False when it could not be stored.
  bool StoreMessage(PLXTokenizedString const& lines_i, bool isWhole_i, PLXString& name_io) const;
  PLXString GenerateNextAttachmentLabel() const;

  PLXEmailFields myFields;
  PLXString myAttachmentLabel;
  PLXString myText;  // of a new message, once it has been built
  PLXOutbox myOutbox;
};
