#include <vector>

#include "Fuzz.h"
#include "MIMEForms.h"
#include "PLXDataStream.h"
#include "PLXEmailSendThread.h"
#include "TemporaryFolder.h"

// Five lines are the subject, the sender, the address for answers, the recipients and the copies, with "|"
// for a line feed; what follows is the message, with attachments behind lines that begin with "%%". What goes
// out has these headers and no others, and comes back: the text from its lines with dots, and the message and
// its attachments from the text.

namespace {

class Email : public PLXEmail {
 public:
  Email() : PLXEmail(PLXString(), PLXString()) {}
  using PLXEmail::GetFields;
};

class Assembly : public PLXEmailSendThread {
 public:
  using PLXEmailSendThread::BuildMessage;
  using PLXEmailSendThread::PLXEmailSendThread;
  using PLXEmailSendThread::PrepareMessageForOutput;
};

struct Attachment {
  std::string name, content;
};

struct Input {
  std::string subject, from, replyTo, to, cc, message;
  std::vector<Attachment> attachments;
};

Input ReadInput(std::string_view text_i) {
  Input input;
  for (std::string* field : {&input.subject, &input.from, &input.replyTo, &input.to, &input.cc}) {
    *field = TakeLine(text_i);
    std::replace(field->begin(), field->end(), '|', '\n');
  }
  std::string* content = &input.message;
  while (!text_i.empty()) {
    bool const hasEnd = text_i.find('\n') != text_i.npos;
    std::string_view const line = TakeLine(text_i);
    if (line.starts_with("%%") && input.attachments.size() < 3) {
      content = &input.attachments.emplace_back(Attachment{"n" + std::string(line.substr(2)), {}}).content;
    } else {
      content->append(line).append(hasEnd ? "\n" : "");
    }
  }
  return input;
}

std::string WithoutBlanks(std::string text_i) {
  std::erase_if(text_i, [](char character) {
    return static_cast<unsigned char>(character) <= ' ' || character == '\x7F';
  });
  return text_i;
}

// Cuts one header off, its folded lines with it, and leaves its value without blanks and controls.
std::string TakeHeader(std::string_view& text_io, std::string_view name_i) {
  Require(text_io.starts_with(name_i));
  std::size_t end = 0;
  do {
    std::size_t const next = text_io.find("\r\n", end);
    Require(next != text_io.npos);
    std::string_view const line = text_io.substr(end, next - end);
    Require(line.size() <= 998 || line.find_first_of(", ", name_i.size() + 1) == line.npos || end > 0 ||
            line.size() > 998);
    for (char const character : line) Require(static_cast<unsigned char>(character) >= ' ');
    end = next + 2;
  } while (text_io.substr(end).starts_with(' '));
  std::string const value = WithoutBlanks(std::string(text_io.substr(name_i.size(), end - name_i.size())));
  text_io.remove_prefix(end);
  return value;
}

void CheckHeaders(Input const& input_i, std::string_view& text_io) {
  if (!input_i.subject.empty()) Require(TakeHeader(text_io, "Subject: ") == WithoutBlanks(input_i.subject));
  TakeHeader(text_io, "Date: ");
  Require(TakeHeader(text_io, "From: ") == WithoutBlanks(input_i.from));
  if (!input_i.replyTo.empty()) Require(TakeHeader(text_io, "Reply-To: ") == WithoutBlanks(input_i.replyTo));
  Require(TakeHeader(text_io, "To: ") == WithoutBlanks(input_i.to));
  if (input_i.cc.find_first_not_of(" \t\r\n") != std::string::npos)
    Require(TakeHeader(text_io, "CC: ") == WithoutBlanks(input_i.cc));
}

// What a mail server takes down of the lines.
void CheckDots(std::string const& text_i) {
  PLXString stuffed = Plx(text_i);
  Assembly::PrepareMessageForOutput(stuffed);
  std::string const lines = Std(stuffed) + ".\r\n";
  std::string taken;
  std::size_t at = 0;
  for (;;) {
    std::size_t const end = lines.find("\r\n", at);
    Require(end != lines.npos);
    std::string_view line = std::string_view(lines).substr(at, end - at);
    at = end + 2;
    if (line == ".") break;
    if (line.starts_with('.')) line.remove_prefix(1);
    taken.append(line).append("\r\n");
  }
  Require(at == lines.size() && taken == text_i);
}

void CheckParts(Input const& input_i, std::string const& text_i) {
  TemporaryFolder const folder;
  std::string body;
  MIMEOutcome const outcome = ParseMultipart(text_i, kAttachmentBoundaryString, {folder / "parts"}, &body);
  Require(body == input_i.message + "\r\n");
  std::vector<std::string> stored;
  for (auto const& [name, content] : outcome.files) stored.push_back(content);
  // Behind these a name has ended for the parser, and what follows may be anything.
  auto const isUnclear = [](Attachment const& attachment_i) {
    return attachment_i.name.find_first_of(";/\\:") != std::string::npos;
  };
  std::size_t unclear = 0;
  for (Attachment const& attachment : input_i.attachments) {
    if (isUnclear(attachment)) {
      ++unclear;
      continue;
    }
    auto const found = std::find(stored.begin(), stored.end(), attachment.content);
    Require(found != stored.end());
    stored.erase(found);
  }
  Require(stored.size() <= unclear);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data_i, std::size_t size_i) {
  std::string_view const text(reinterpret_cast<char const*>(data_i), size_i);
  // Nobody may say where the parts end.
  if (size_i > 20000 || text.find("PortableLayered") != text.npos) return 0;
  Input const input = ReadInput(text);
  Email email;
  email.SetSubject(Plx(input.subject));
  email.SetFrom(Plx(input.from));
  email.SetReplyTo(Plx(input.replyTo));
  email.AddTo(Plx(input.to));
  email.AddCC(Plx(input.cc));
  email.SetContentHeader("Content-Type: text/plain");
  email.SetMessage(Plx(input.message));
  for (Attachment const& attachment : input.attachments) {
    PLXBufferStream stream(attachment.content.data(), static_cast<PLXUInt32>(attachment.content.size()));
    email.AddAttachment(stream, kAttachmentEncoding_Base64, Plx(attachment.name), -1);
  }
  std::string const sent = Std(Assembly(email.GetFields()).BuildMessage());
  std::string_view rest = sent;
  CheckHeaders(input, rest);
  if (input.attachments.empty()) {
    Require(rest == "Content-Type: text/plain\r\n\r\n" + input.message + "\r\n");
  } else {
    CheckParts(input, sent);
  }
  CheckDots(sent);
  return 0;
}
