#include "PLXEmailSendThread.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

#include "PLXFile.h"
#include "PLXFileStream.h"
#include "PLXFolderSpecification.h"
#include "PLXHTTP.h"
#include "PLXHeaderText.h"
#include "PLXRandomNumber.h"
#include "PLXSMTPDialogue.h"
#include "PLXStringUtility.h"
#include "PLXTimestamp.h"

namespace {

constexpr char kLineEnd[] = "\r\n";
// What is assumed of a message whose thread did not live to say more.
constexpr char kInterrupted[] =
    "Interrupted: the server ended before the outcome was known. The message may have been delivered.";
// Of a server that is busy, and of a proxy whose server is gone or busy.
constexpr PLXUInt32 kBadGateway = 502;
constexpr PLXUInt32 kGatewayTimeout = 504;
constexpr PLXUInt32 kSuccessClass = 2;  // of a status
constexpr int kReportAttempts = 5;
constexpr std::chrono::milliseconds kFirstReportPause(1000);  // doubled each time
constexpr std::chrono::seconds kHoldingPause(15);             // of a message that no disk takes
constexpr PLXUInt32 kBreakOffInterval = 100;                  // milliseconds

// What send threads share: the connections of their dialogues, and whether the module is about to go. Never
// destroyed, since a thread may outlive the library's static objects; it holds no memory once they have
// ended.
struct Shared {
  PLXNetworkingStreamGroup dialogues;
  std::mutex mutex;
  std::condition_variable leaving;
  bool isLeaving = false;  // guarded by mutex
};
Shared& GetShared() {
  alignas(Shared) static unsigned char storage[sizeof(Shared)];
  static auto* const shared = new (storage) Shared;
  return *shared;
}

// False, and at once, when the module is about to go.
bool Pause(std::chrono::milliseconds time_i) {
  Shared& shared = GetShared();
  std::unique_lock lock(shared.mutex);
  return !shared.leaving.wait_for(lock, time_i, [&] { return shared.isLeaving; });
}

// The header lines that a stored message gets anew.
constexpr std::string_view kFreshHeaders[] = {"Subject: ", "Date: ", "From: ", "Reply-To: ", "To: ", "CC: "};

bool IsFreshHeader(std::string_view line_i) {
  for (std::string_view name : kFreshHeaders) {
    if (line_i.starts_with(name)) return true;
  }
  return false;
}

bool IsContinuation(std::string_view line_i) { return line_i.starts_with(' ') || line_i.starts_with('\t'); }

// Takes the text up to the next line feed. False at the end; a line without an end is none.
bool TakeLine(std::string_view& text_io, std::string_view& line_o) {
  std::size_t const end = text_io.find(kPlatformLineEnding[0]);
  if (end == std::string_view::npos) return false;
  line_o = text_io.substr(0, end);
  text_io.remove_prefix(end + 1);
  return true;
}

void AppendLine(std::string_view line_i, PLXString& text_io) {
  text_io.ReserveToAppend(static_cast<PLXUInt32>(line_i.size()) + 2);
  text_io.Append(line_i.data(), static_cast<PLXUInt32>(line_i.size()));
  text_io.Append(kLineEnd);
}

std::atomic<PLXEmailObserver*> ourObserver = nullptr;

// One attempt as the observer sees it; told when it goes, however the attempt ended.
class WatchedAttempt {
 public:
  explicit WatchedAttempt(PLXEmailFields const& fields_i)
      : outcome{.fields = fields_i}, myObserver(ourObserver.load(std::memory_order_acquire)) {
    if (myObserver != nullptr) myObserver->Begin();
  }
  WatchedAttempt(WatchedAttempt const&) = delete;
  WatchedAttempt& operator=(WatchedAttempt const&) = delete;
  ~WatchedAttempt() {
    if (myObserver != nullptr) myObserver->End(outcome);
  }

  PLXEmailOutcome outcome;

 private:
  PLXEmailObserver* const myObserver;
};

PLXUInt32 MillisecondsSince(std::chrono::steady_clock::time_point start_i) {
  using std::chrono::milliseconds;
  auto const time = std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - start_i);
  return static_cast<PLXUInt32>(time.count());
}

// An argument of a report.
struct Argument {
  char const* name;
  PLXString value;
};
using Arguments = std::vector<Argument>;

Arguments GetFailure(PLXEmailFields const& fields_i, PLXString const& error_i) {
  return {{"Status", "F"},         {"SMTPServer", fields_i.mailServer},
          {"From", fields_i.from}, {"ReplyTo", fields_i.replyTo},
          {"To", fields_i.to},     {"CC", fields_i.cc},
          {"BCC", fields_i.bcc},   {"Subject", fields_i.subject},
          {"Info", error_i}};
}

// As the outbox keeps it: one line.
PLXString GetOutcome(Arguments const& arguments_i) {
  PLXString outcome;
  for (Argument const& argument : arguments_i) {
    PLXString const value = PLXStringUtility::GetURLEncodedString(argument.value, true);
    if (outcome.IsNotEmpty()) outcome += '&';
    outcome.ReserveToAppend(value.GetLength() + 16);
    outcome.Append(argument.name).Append("=").Append(value);
  }
  return outcome;
}

// A server too busy to take the report, or gone for a moment, is told again, because a message that is not in
// its list is one that nobody knows of. False when nobody took it.
bool Report(PLXString const& url_i, PLXString const& name_i, Arguments const& arguments_i) {
  PLXHTTP http;
  http.SetURL(url_i);
  http.SetMethod(PLXHTTPMethod::POST);
  http.AddPostArgument("MessageID", name_i);
  for (Argument const& argument : arguments_i) http.AddPostArgument(argument.name, argument.value);
  std::chrono::milliseconds pause = kFirstReportPause;
  for (int attempt = 0; attempt < kReportAttempts; ++attempt, pause *= 2) {
    if (attempt > 0) Pause(pause);
    PLXUInt32 const status = http.Process(false) ? http.GetStatus() : 0;
    bool const isForNow = status == 0 || (status >= kBadGateway && status <= kGatewayTimeout);
    if (!isForNow) return status / 100 == kSuccessClass;
  }
  return false;
}

}  // namespace

PLXEmailSendThread::PLXEmailSendThread(PLXEmailFields const& fields_i)
    : myFields(fields_i),
      myAttachmentLabel(GenerateNextAttachmentLabel()),
      myOutbox(fields_i.failedMailFolder) {
  myFields.MakeUnique();
}

PLXString PLXEmailSendThread::GenerateNextAttachmentLabel() const {
  static PLXRandomNumber const ourNumbers;
  return "PLXEmail_" + PLXStringUtility::GetStringRepresentation(ourNumbers.GetNext());
}

bool PLXEmailSendThread::WaitUntilAllSent(PLXUInt32 patience_i) {
  {
    std::lock_guard const lock(GetShared().mutex);
    GetShared().isLeaving = true;
  }
  GetShared().leaving.notify_all();
  if (WaitUntilAllEnded(patience_i)) return true;
  // Again and again, because a dialogue may just be beginning.
  for (PLXUInt32 waited = 0; waited < patience_i; waited += kBreakOffInterval) {
    GetShared().dialogues.BreakOff();
    if (WaitUntilAllEnded(kBreakOffInterval)) return true;
  }
  return false;
}

bool PLXEmailSendThread::Keep() {
  if (IsResend() || myText.IsNotEmpty()) return true;
  myText = BuildMessage();
  PrepareMessageForOutput(myText);
  AppendLine(".", myText);
  if (!HasFolder()) return false;
  PLXString message(myText);
  message.ReplaceAll(kLineEnd, kPlatformLineEnding);
  bool const isKept = myOutbox.Add(GetOutcome(GetFailure(myFields, kInterrupted)), message);
  message.Empty();
  myText.MakeUnique();
  return isKept;
}

void PLXEmailSendThread::SetObserver(PLXEmailObserver* observer_i) noexcept {
  ourObserver.store(observer_i, std::memory_order_release);
}

void PLXEmailSendThread::Run() {
  WatchedAttempt attempt(myFields);
  bool isWhole = false;
  if (IsResend()) {
    myText = BuildStoredMessage(isWhole);
    PrepareMessageForOutput(myText);
    AppendLine(".", myText);
  } else {
    Keep();
  }
  attempt.outcome.size = myText.GetLength();
  attempt.outcome.name = IsResend() ? myFields.messageID : myOutbox.GetName();
  PLXTokenizedString const lines(myText, kLineEnd);
  myText.Empty();
  PLXTokenizedString const recipients(
      myFields.to + kRecipientListDelimiter + myFields.cc + kRecipientListDelimiter + myFields.bcc,
      kRecipientListDelimiter);
  auto const start = std::chrono::steady_clock::now();
  PLXString const error = SendFormattedMessage(recipients, lines);
  attempt.outcome.milliseconds = MillisecondsSince(start);
  if (error.IsEmpty()) {
    attempt.outcome.status = PLXEmailOutcome::kSent;
    ReportSuccess(isWhole);
  } else {
    attempt.outcome.reason = error;
    attempt.outcome.status = ReportFailure(lines, isWhole, error);
  }
}

PLXString PLXEmailSendThread::BuildHeader() const {
  PLXString header;
  if (myFields.subject.IsNotEmpty()) AppendHeaderLine("Subject", myFields.subject, header);
  AppendHeaderLine("Date", PLXTimestamp().Get(PLXTimestamp::kFormatRFC1123, true, myFields.gmtOffset),
                   header);
  AppendHeaderLine("From", myFields.from, header);
  if (myFields.replyTo.IsNotEmpty()) AppendHeaderLine("Reply-To", myFields.replyTo, header);
  AppendHeaderLine("To", myFields.to, header);
  if (myFields.cc.IsNotEmpty()) AppendHeaderLine("CC", myFields.cc, header);
  return header;
}

// Lets go of the parts as they are copied, so that a large message is in memory twice and no more.
PLXString PLXEmailSendThread::BuildMessage() {
  PLXString text = BuildHeader();
  bool const isMultipart = myFields.attachments.IsNotEmpty();
  text.Reserve(text.GetLength() + myFields.contentHeader.GetLength() + myFields.message.GetLength() +
               myFields.attachments.GetLength() + 512);
  if (isMultipart) {
    text.Append("MIME-Version: 1.0\r\nContent-Type: multipart/mixed; boundary=\"");
    text.Append(kAttachmentBoundaryString).Append("\"\r\n\r\n").Append(kAttachmentBoundaryLabel);
  }
  text.Append(myFields.contentHeader).Append("\r\n\r\n").Append(myFields.message).Append(kLineEnd);
  myFields.message.Empty();
  if (isMultipart) {
    text.Append(myFields.attachments).Append(kLineEnd).Append(kAttachmentEndBoundaryLabel);
    myFields.attachments.Empty();
  }
  return text;
}

PLXString PLXEmailSendThread::BuildStoredMessage(bool& isWhole_o) const {
  PLXFileStream stream(
      PLXFileSpecification(PLXFolderSpecification(myFields.failedMailFolder), myFields.messageID));
  PLXString const stored = stream.GetRemainingBytes();
  std::string_view rest(stored.GetCStringAccess(), stored.GetLength());
  std::string_view line;
  PLXString text = BuildHeader();
  text.Reserve(text.GetLength() + stored.GetLength() + stored.GetLength() / 64 + 64);
  bool isHeader = true;
  bool isDropped = false;
  isWhole_o = false;
  while (!isWhole_o && TakeLine(rest, line)) {
    isWhole_o = line == ".";
    if (isWhole_o) break;
    if (line.starts_with('.')) line.remove_prefix(1);
    if (line.empty()) isHeader = false;
    isDropped = isHeader && (IsFreshHeader(line) || (isDropped && IsContinuation(line)));
    if (!isDropped) AppendLine(line, text);
  }
  return text;
}

void PLXEmailSendThread::PrepareMessageForOutput(PLXString& text_io) {
  if (text_io.BeginsWith(".")) text_io.Prepend('.');
  text_io.ReplaceAll("\r\n.", "\r\n..");
}

PLXString PLXEmailSendThread::SendFormattedMessage(PLXTokenizedString const& recipients_i,
                                                   PLXTokenizedString const& lines_i) {
  return PLXSMTPDialogue(myFields.mailServer, myFields.from, recipients_i, lines_i, GetShared().dialogues)
      .Run();
}

void PLXEmailSendThread::ReportSuccess(bool isWhole_i) {
  if (!IsResend()) {
    myOutbox.Remove();
    return;
  }
  // What could not be read to its end may hold more than was sent, so it stays.
  Arguments const success{{"Status", "S"}};
  bool isTaken = false;
  if (myFields.callbackURL.IsNotEmpty()) {
    if (isWhole_i) myOutbox.SetOutcome(myFields.messageID, GetOutcome(success));
    isTaken = Report(myFields.callbackURL, myFields.messageID, success);
  }
  PLXFileSpecification file(PLXFolderSpecification(myFields.failedMailFolder), myFields.messageID);
  bool const isGone = !isWhole_i || file.Delete() || !file.Exists();
  if (isTaken && isGone) myOutbox.Remove();
}

// A message that cannot be stored in the folder stays in the outbox if it is there. One that is in neither,
// because no disk takes it, is held in memory and tried again until the module goes.
PLXEmailOutcome::Status PLXEmailSendThread::ReportFailure(PLXTokenizedString const& lines_i, bool isWhole_i,
                                                          PLXString const& error_i) {
  if (!HasFolder()) return PLXEmailOutcome::kLost;
  Arguments const failure = GetFailure(myFields, error_i);
  PLXString name = IsResend() ? myFields.messageID : myOutbox.GetName();
  bool isStored = false;
  bool isTaken = false;
  for (bool hasTime = true;;) {
    isStored = isStored || StoreMessage(lines_i, isWhole_i, name);
    if (isStored) myOutbox.SetOutcome(name, GetOutcome(failure));
    isTaken = isTaken || Report(myFields.callbackURL, name, failure);
    if (isStored && isTaken) myOutbox.Remove();
    bool const isSafe = (isStored && isTaken) || IsResend() || myOutbox.GetName().IsNotEmpty();
    if (isStored && isTaken) return PLXEmailOutcome::kFailed;
    if (isSafe) return PLXEmailOutcome::kKept;
    if (!hasTime) return isStored ? PLXEmailOutcome::kKept : PLXEmailOutcome::kLost;
    hasTime = Pause(kHoldingPause);
  }
}

bool PLXEmailSendThread::StoreMessage(PLXTokenizedString const& lines_i, bool isWhole_i,
                                      PLXString& name_io) const {
  PLXFolderSpecification folder(myFields.failedMailFolder);
  folder.CreateIfMissing();
  PLXString content;
  PLXUInt32 const count = lines_i.GetTokenCount();
  for (PLXUInt32 index = 0; index < count; ++index) {
    PLXString const line = lines_i.GetToken(index);
    if (index + 1 == count && line.IsEmpty()) break;
    content.ReserveToAppend(line.GetLength() + 1);
    content.Append(line).Append(kPlatformLineEnding);
  }
  if (IsResend()) {
    PLXFileSpecification const file(folder, name_io);
    // What could not be read stays as it is.
    return (!isWhole_i && file.Exists()) || PLXFile::WriteWhole(file, content, PLXFile::kReplaceExistingFile);
  }
  bool isStored = false;
  bool hasFailed = false;
  auto const store = [&](PLXString const& name) {
    PLXFileSpecification const file(folder, name);
    isStored = PLXFile::WriteWhole(file, content, PLXFile::kKeepExistingFile);
    // A name that is free and still not to be had, twice: the disk takes nothing. The report goes out all the
    // same, so that the list at least names the message.
    return !isStored && (file.Exists() || !std::exchange(hasFailed, true));
  };
  // The name in the outbox is the message's own.
  if (name_io.IsNotEmpty()) {
    store(name_io);
  } else {
    name_io = PLXOutbox::ChooseName(store);
  }
  return isStored;
}
