// plxPOP: collects the mail of a POP3 mailbox into a record database and its attachments into a folder of the
// site. Writes nothing into the page; a page variable tells how many messages were new.

#include <algorithm>

#include "Journal.tag"
#include "PLXFile.h"
#include "PLXFolderSpecification.h"
#include "PLXPOP3.h"
#include "PLXStringUtility.h"
#include "PLXTokenizedString.h"
#include "POP/Database.tag"
#include "POP/Message.tag"

static constexpr PLXUInt32 kPOPDefaultMaximumAttachmentSize = 3072;  // kilobytes
static constexpr PLXUInt32 kPOPLongestUniqueID = 1024;  // bytes; servers are to give 70 (RFC 1939, section 7)

// Who is collecting which message right now: a byte of a file of the region's for each, by a number made of
// the database's name and the unique ID. Two runs share a mailbox that way, and no message is fetched by
// both. Where the file cannot be had, nobody is kept apart.
class POP_MessageLocks {
 public:
  explicit POP_MessageLocks(_PLXAPI_ModuleProcessingInfo* info_i) {
    PLXGlueGetTagParameter(info_i, kPOPParameter_DatabaseName, 0, myDatabaseName, PLXString());
    PLXFolderSpecification const folder(PLXGlueGetRegionDataFolderPath(info_i, "POP"));
    if (folder.GetOperatingSystemPathname().IsEmpty()) return;
    myFile.SetSpecification(PLXFileSpecification(folder, "Locks"));
    myFile.Create();
    myFile.Open(kPLXFilePermission_ReadWrite);
  }

  bool Take(PLXString const& uniqueID_i) {
    myPosition = GetNumber(uniqueID_i);
    return !myFile.IsOpen() || myFile.TryLockByte(myPosition);
  }
  void Release() { myFile.UnLockByte(myPosition); }

 private:
  // FNV-1a.
  std::uint64_t GetNumber(PLXString const& uniqueID_i) const {
    std::uint64_t number = 0xCBF29CE484222325;
    for (PLXString const& text : {myDatabaseName, uniqueID_i}) {
      char const* const bytes = text.GetCStringAccess();
      for (PLXUInt32 index = 0; index <= text.GetLength(); ++index) {
        number = (number ^ static_cast<unsigned char>(bytes[index])) * 0x100000001B3;
      }
    }
    return number;
  }

  PLXString myDatabaseName;
  PLXFile myFile;
  std::uint64_t myPosition = 0;
};

// One run over a mailbox. The client is connected and the database open for as long as this lives.
//
// A message is known by its unique ID, which the database refuses to hold twice. Its record is added before
// the message is fetched and filled afterwards, so one without a header is a message that a run did not get
// to the end of; the next run that meets it fills it.
class POP_Collector {
 public:
  POP_Collector(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i, PLXPOP3& client_i,
                PLXString const& folder_i, Journal_Collection& journal_i)
      : myInfo(info_i),
        myDatabase(database_i),
        myClient(client_i),
        myFolder(folder_i),
        myJournal(journal_i),
        myLocks(info_i) {
    PLXGlueGetTagParameter(myInfo, kPOPParameter_DeleteMessagesOnServer, 0, myIsDeleting, false);
    PLXGlueGetTagParameter(myInfo, kPOPParameter_MaximumAttachmentSize, 0, myMaximumSize,
                           kPOPDefaultMaximumAttachmentSize);
  }

  // Collects what the answer to a UIDL lists. A line that was cut has no line end, and its ID would be a
  // wrong one.
  void Collect(PLXString const& listing_i) {
    PLXTokenizedString const lines(listing_i, "\r\n");
    for (PLXUInt32 index = 0; index + 1 < lines.GetTokenCount(); ++index) {
      PLXString const line = lines.GetToken(index);
      if (line.IsEmpty() || line[0] == '.' || POP_IsPositive(line)) continue;
      PLXTokenizedString const words(line, " ");
      PLXString const number = words.GetToken(0);
      PLXString const uniqueID = words.GetToken(1);
      // What another run is collecting now, that run collects.
      if (number.IsEmpty() || !IsUniqueID(uniqueID) || !myLocks.Take(uniqueID)) continue;
      bool const goesOn = IsNew(uniqueID) ? CollectMessage(number) : PassOver();
      myLocks.Release();
      if (!goesOn) return;
    }
  }

  PLXUInt32 GetNewMessageCount() const noexcept { return myNewMessageCount; }
  // Of the last database call; 0 where there was none, and for a message that was known.
  PLXUInt32 GetStatus() const noexcept { return myStatus; }

 private:
  static bool IsUniqueID(PLXString const& text_i) {
    char const* const start = text_i.GetCStringAccess();
    return text_i.IsNotEmpty() && text_i.GetLength() <= kPOPLongestUniqueID &&
           std::all_of(start, start + text_i.GetLength(),
                       [](char character_i) { return static_cast<unsigned char>(character_i) > ' '; });
  }

  // A message that was collected before is met again, or the database would not take the new one.
  bool PassOver() {
    if (myStatus == 0) {
      myJournal.CountKnown();
    } else {
      myJournal.Fail("The database refused a message");
    }
    return true;
  }

  // Leaves the message's record current. False for a message that was collected before and, with the status
  // set, when there is no record to be had.
  bool IsNew(PLXString const& uniqueID_i) {
    myStatus = PLXGlueDBCreateRecord(myInfo, myDatabase);
    if (myStatus != 0) return false;
    myStatus = PLXGlueDBSetTextFieldValue(myInfo, myDatabase, kPOPDatabaseField_UniqueID, uniqueID_i);
    if (myStatus != 0) return false;
    myIsRepeated = PLXGlueDBAddRecord(myInfo, myDatabase) != 0;
    PLXString value(uniqueID_i);
    value.ReplaceAll("'", "''");
    myStatus = PLXGlueDBExecuteSearch(myInfo, myDatabase, kPOPDatabaseField_UniqueID + "='" + value + "'");
    if (myStatus == 0) myStatus = PLXGlueDBMoveFirstRecord(myInfo, myDatabase);
    if (myStatus != 0) return false;
    return !myIsRepeated ||
           PLXGlueDBGetLongTextFieldValue(myInfo, myDatabase, kPOPDatabaseField_Header).IsEmpty();
  }

  // False when the connection broke.
  bool CollectMessage(PLXString const& number_i) {
    PLXString answer = myClient.SendPOPCommand("RETR " + number_i + "\r\n");
    myJournal.CountBytes(answer.GetLength());
    if (answer.BeginsWith("-")) return true;
    if (!POP_IsPositive(answer) || !answer.EndsWith(kPOPLoneDot)) {
      myJournal.Fail("The connection broke");
      PLXGlueAddWarningToServerLog(
          myInfo, "plxPOP: the connection broke at message " + number_i + ", which is left to the next run.");
      return false;
    }
    POP_Message message = POP_SplitAnswer(answer);
    answer.Empty();
    if (!POP_TakeParts(message, myFolder, myMaximumSize, myIsRepeated)) {
      myJournal.Fail("An attachment cannot be saved");
      PLXGlueAddErrorToServerLog(myInfo, "plxPOP: an attachment of message " + number_i +
                                             " cannot be saved; the message is left to the next run.");
      return true;
    }
    message.text.RemoveSubstring(kPOPLongestMessage, kPLXWholeLength);
    Fill(message);
    if (myStatus != 0) {
      myJournal.Fail("The database refused a message");
      return true;
    }
    ++myNewMessageCount;
    myJournal.CountNew();
    if (myIsDeleting) myClient.SendPOPCommand("DELE " + number_i + "\r\n");
    return true;
  }

  void Fill(POP_Message const& message_i) {
    PLXTokenizedString const lines(message_i.header, "\r\n");
    SetText(kPOPDatabaseField_Header, message_i.header);
    PLXGlueDBSetBooleanFieldValue(myInfo, myDatabase, kPOPDatabaseField_Read, false);
    SetHeader(lines, kPOPDatabaseField_To);
    SetHeader(lines, kPOPDatabaseField_Date);
    SetText(kPOPDatabaseField_Size, PLXNumber(message_i.text.GetLength()).GetStringRepresentation());
    SetHeader(lines, kPOPDatabaseField_ReturnPath);
    SetHeader(lines, kPOPDatabaseField_Received);
    SetHeader(lines, kPOPDatabaseField_XSender);
    SetHeader(lines, kPOPDatabaseField_MessageID);
    SetHeader(lines, kPOPDatabaseField_MimeVersion);
    SetHeader(lines, kPOPDatabaseField_ContentType);
    SetHeader(lines, kPOPDatabaseField_Status);
    SetText(kPOPDatabaseField_Message, message_i.text);
    SetHeader(lines, kPOPDatabaseField_Subject);
    PLXString const from = SetHeader(lines, kPOPDatabaseField_From);
    PLXString name;
    PLXString address;
    POP_SplitFrom(from, name, address);
    SetText(kPOPDatabaseField_FromName, name);
    SetText(kPOPDatabaseField_FromEmail, address);
    myStatus = PLXGlueDBUpdateRecord(myInfo, myDatabase);
  }

  // A value that the database does not take leaves its field as it is.
  void SetText(PLXString const& field_i, PLXString const& value_i) {
    PLXGlueDBSetLongTextFieldValue(myInfo, myDatabase, field_i, value_i);
  }

  // The field is named like its header.
  PLXString SetHeader(PLXTokenizedString const& lines_i, PLXString const& field_i) {
    PLXString value = POP_CollectMail_GetHeader(lines_i, field_i);
    SetText(field_i, value);
    return value;
  }

  _PLXAPI_ModuleProcessingInfo* const myInfo;
  PLXUInt32 const myDatabase;
  PLXPOP3& myClient;
  PLXString const& myFolder;
  Journal_Collection& myJournal;
  POP_MessageLocks myLocks;
  bool myIsRepeated = false;  // the current message has a record, without its text, of an earlier run
  bool myIsDeleting = false;
  unsigned int myMaximumSize = 0;  // of an attachment in kilobytes; 0 is no limit
  PLXUInt32 myNewMessageCount = 0;
  PLXUInt32 myStatus = 0;
};

static PLXUInt32 POP_ReportConnection(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 result_i) {
  static constexpr char kLater[] = "Please try again in a few minutes.";
  switch (result_i) {
    case kPOP3Result_ConnectionTimedOut:
      POP_Report(info_i, "The connection to the POP server timed out.", kLater);
      break;
    case kPOP3Result_AlreadyConnected:
      POP_Report(info_i, "The client is already connected.", "Please logout and try again.");
      break;
    case kPOP3Result_InvalidPassword:
      POP_Report(info_i, "The password was invalid.",
                 "Please provide the proper password for the given username.");
      break;
    case kPOP3Result_UnknownUser:
      POP_Report(info_i, "The username was invalid.", "Please provide a valid username.");
      break;
    default:
      POP_Report(info_i, "The client was unable to connect to the POP server.", kLater);
  }
  return kPLXResult_GeneralError;
}

// The status of the last database call, and 'MGen' with a report when nobody could log in. A server that does
// not know UIDL, or says nothing at all, is an empty mailbox.
static PLXUInt32 POP_CollectMail(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32& newMessageCount_o,
                                 PLXUInt32 database_i, PLXString const& username_i,
                                 PLXString const& password_i, PLXString const& mailServer_i,
                                 PLXString const& attachmentFolder_i, Journal_Collection& journal_i) {
  newMessageCount_o = 0;
  PLXPOP3 client(mailServer_i, username_i, password_i);
  PLXUInt32 const connection = client.Connect();
  if (connection != kPOP3Result_Success) {
    journal_i.Fail(Journal_GetReason(client, connection));
    client.Disconnect();
    return POP_ReportConnection(info_i, connection);
  }
  PLXString const listing = client.SendPOPCommand("UIDL\r\n");
  POP_Collector collector(info_i, database_i, client, attachmentFolder_i, journal_i);
  if (POP_IsPositive(listing)) {
    collector.Collect(listing);
  } else {
    journal_i.Fail(listing.IsEmpty() ? "Closed without an answer" : "The server does not list its messages");
  }
  client.Disconnect();
  newMessageCount_o = collector.GetNewMessageCount();
  // Reads the whole folder, so not for a look into an empty mailbox.
  if (newMessageCount_o > 0) PLXFile::RemoveLeftovers(PLXFolderSpecification(attachmentFolder_i));
  return collector.GetStatus();
}

// A login and what it opens.
struct POP_Mailbox {
  PLXString username;
  PLXString password;
  PLXString mailServer;
};

static PLXUInt32 POP_CollectMailbox(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32& newMessageCount_o,
                                    POP_Mailbox const& mailbox_i) {
  Journal_Collection journal(info_i, "plxPOP", mailbox_i.mailServer, mailbox_i.username);
  PLXString folder;
  PLXGlueGetTagParameter(info_i, kPOPParameter_AttachmentFolderLocation, 0, folder,
                         kPOPDefaultAttachmentFolder);
  if (!PLXGlueVerifyRegionContainsFile(info_i, folder)) {
    journal.Fail("The attachment folder is outside the region");
    return kPLXResult_NotAuthorized;
  }
  POP_Database database(info_i);
  if (!database.Open()) {
    journal.Fail("The database cannot be opened");
    return kPLXResult_GeneralError;
  }
  return POP_CollectMail(info_i, newMessageCount_o, database.GetDatabase(), mailbox_i.username,
                         mailbox_i.password, mailbox_i.mailServer, folder, journal);
}

// 0; 'MMRP' without a required parameter; 'MNAu' for a folder outside the site; 'MGen' for a database or a
// connection that cannot be had, reported; else what the database answered last.
static PLXUInt32 ProcessPOP(_PLXAPI_ModuleProcessingInfo* info_i, PLXString&) {
  POP_Mailbox mailbox;
  PLXString databaseName;
  if (!PLXGlueGetRequiredTagParameter(info_i, kPOPParameter_Username, 0, mailbox.username) ||
      !PLXGlueGetRequiredTagParameter(info_i, kPOPParameter_Password, 0, mailbox.password) ||
      !PLXGlueGetRequiredTagParameter(info_i, kPOPParameter_MailServer, 0, mailbox.mailServer) ||
      !PLXGlueGetRequiredTagParameter(info_i, kPOPParameter_DatabaseName, 0, databaseName)) {
    return kPLXResult_MissingRequiredParameter;
  }
  PLXString variable;
  PLXGlueGetTagParameter(info_i, kPOPParameter_ResultVariableName, 0, variable, kPLXTagPOP.GetName());
  PLXUInt32 newMessageCount = 0;
  PLXUInt32 const result = POP_CollectMailbox(info_i, newMessageCount, mailbox);
  PLXGlueSetPageVariable(info_i, variable + "_ResultCount",
                         PLXNumber(newMessageCount).GetStringRepresentation());
  return result;
}
