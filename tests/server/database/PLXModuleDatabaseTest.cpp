#include "PLXModuleAPIGlue.h"
#include "PLXModuleDatabase.h"
#include "RecordFixture.h"

// The database requests from end to end: a module's wrappers on one side, the engine on the other.

namespace {

PLXUInt32 Forward(PLXConnectionID id_i, PLXUInt32 code_i, void* a1, void* a2, void* a3, void* a4, void* a5,
                  void* a6) {
  return static_cast<PLXModuleDatabase*>(id_i)->Answer(code_i, {a1, a2, a3, a4, a5, a6}, nullptr);
}

std::string Text(PLXString const& string_i) { return {string_i.GetCStringAccess(), string_i.GetLength()}; }

}  // namespace

TEST_P(Records, ServeTheModulesWrappers) {
  PLXModuleDatabase answers(*myEngine);
  _PLXAPI_ModuleProcessingInfo info{&answers, kPLXEvent_Tag, nullptr, &Forward};
  auto* const event = &info;
  PLXUInt32 log = 0;
  ASSERT_EQ(PLXGlueDBOpenDatabase(event, "Mail Log", kPLXOpenMode_Exclusive, log), 0u);
  EXPECT_EQ(PLXGlueDBAddTextField(event, log, "Subject", 300), 0u);
  EXPECT_EQ(PLXGlueDBAddLongTextField(event, log, "Message"), 0u);
  EXPECT_EQ(PLXGlueDBAddBooleanField(event, log, "Sent"), 0u);
  EXPECT_EQ(PLXGlueDBAddIntegerField(event, log, "Number"), 0u);
  EXPECT_EQ(PLXGlueDBAddUIntegerField(event, log, "Size"), 0u);
  EXPECT_EQ(PLXGlueDBAddFloatField(event, log, "Date"), 0u);
  EXPECT_EQ(PLXGlueDBAddField(event, log, "UIDL", kPLXFieldType_Text | 70 | kPLXFieldAttribute_Unique), 0u);
  EXPECT_EQ(PLXGlueDBGetFieldCount(event, log), 7u);
  PLXUInt32 type = 0;
  PLXString name;
  EXPECT_EQ(PLXGlueDBGetFieldInfo(event, log, "subject", type), 0u);
  EXPECT_EQ(type, 0x6012Cu);
  EXPECT_EQ(PLXGlueDBGetFieldInfo(event, log, 6, name, type), 0u);
  EXPECT_EQ(Text(name), "UIDL");
  EXPECT_EQ(RealType(type), kPLXFieldType_Text);

  std::string const message(100000, 'm');
  for (char const* const uidl : {"1", "2", "3"}) {
    EXPECT_EQ(PLXGlueDBCreateRecord(event, log), 0u);
    EXPECT_EQ(PLXGlueDBSetTextFieldValue(event, log, "UIDL", uidl), 0u);
    EXPECT_EQ(
        PLXGlueDBSetTextFieldValue(event, log, "Subject", PLXString(std::string(63, 's').c_str()) + uidl),
        0u);
    EXPECT_EQ(PLXGlueDBSetLongTextFieldValue(event, log, "Message", message.c_str()), 0u);
    EXPECT_EQ(PLXGlueDBSetBooleanFieldValue(event, log, "Sent", uidl[0] == '2'), 0u);
    EXPECT_EQ(PLXGlueDBSetIntegerFieldValue(event, log, "Number", PLXSInt32{-5}), 0u);
    EXPECT_EQ(PLXGlueDBSetUIntegerFieldValue(event, log, "Size", 4294967295u), 0u);
    EXPECT_EQ(PLXGlueDBSetNumberFieldValue(event, log, "Date", PLXNumber("2451812700405.25")), 0u);
    EXPECT_EQ(PLXGlueDBAddRecord(event, log), 0u);
  }
  EXPECT_EQ(PLXGlueDBSetNumberFieldValue(event, log, "Number", PLXNumber("2451812700405")), 0u);
  EXPECT_EQ(PLXGlueDBUpdateRecord(event, log), 0u);
  EXPECT_EQ(PLXGlueDBExecuteSearch(event, log, "Number = '2451812700405'"), 0u);
  EXPECT_EQ(PLXGlueDBGetResultCount(event, log), 1u);
  EXPECT_EQ(Text(PLXGlueDBGetTextFieldValue(event, log, "UIDL")), "3");
  EXPECT_EQ(PLXGlueDBGetNumberFieldValue(event, log, "Number"), PLXNumber("2451812700405"));
  EXPECT_EQ(PLXGlueDBGetIntegerFieldValue(event, log, "Number"), 0) << "beyond its range";
  EXPECT_EQ(PLXGlueDBExecuteSearch(event, log, "Sent = '1' ORDER BY UIDL"), 0u);
  EXPECT_TRUE(PLXGlueDBGetBooleanFieldValue(event, log, "Sent"));
  EXPECT_EQ(PLXGlueDBGetIntegerFieldValue(event, log, "Number"), -5);
  EXPECT_EQ(PLXGlueDBGetUIntegerFieldValue(event, log, "Size"), 4294967295u);
  EXPECT_EQ(PLXGlueDBGetFloatFieldValue(event, log, "Date"), 2451812700405.25);
  EXPECT_EQ(Text(PLXGlueDBGetTextFieldValue(event, log, "Subject")), std::string(63, 's') + "2");
  EXPECT_EQ(Text(PLXGlueDBGetLongTextFieldValue(event, log, "Message")), message);
  EXPECT_EQ(Text(PLXGlueDBGetTextFieldValue(event, log, "PLXIDFIELD")), "2");

  EXPECT_EQ(PLXGlueDBClearSearchResults(event, log), 0u);
  EXPECT_EQ(PLXGlueDBMoveLastRecord(event, log), 0u);
  EXPECT_EQ(PLXGlueDBMoveNextRecord(event, log), kPLXResult_DatabaseEnd);
  EXPECT_EQ(PLXGlueDBMovePrevRecord(event, log), 0u);
  EXPECT_EQ(PLXGlueDBJump(event, log, 5), kPLXResult_DatabaseEnd);
  EXPECT_EQ(PLXGlueDBJump(event, log, -1), 0u);
  EXPECT_EQ(Text(PLXGlueDBGetTextFieldValue(event, log, "UIDL")), "1");
  EXPECT_EQ(PLXGlueDBMoveToRecord(event, log, "3"), 0u);
  EXPECT_EQ(PLXGlueDBDeleteRecord(event, log, PLXUInt32{3}), 0u);
  EXPECT_EQ(PLXGlueDBDeleteRecord(event, log, 3.0), kPLXResult_DatabaseNotFound);
  EXPECT_EQ(PLXGlueDBMoveToRecord(event, log, "three"), kPLXResult_DatabaseValue);

  PLXUInt32 count = 0;
  PLXString const file((myFolder / "log.csv").c_str());
  EXPECT_EQ(PLXGlueDBExport(event, log, file, count, "delimiter=tab"), 0u);
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(PLXGlueDBDeleteAllRecords(event, log), 0u);
  EXPECT_EQ(PLXGlueDBImport(event, log, file, count), 0u);
  EXPECT_EQ(PLXGlueDBGetRecordCount(event, log), 2u);

  // Whatever is refused says why and changes nothing.
  PLXUInt32 second = 77;
  auto const error = [&](PLXUInt32 reference_i) { return Text(PLXGlueDBGetErrorInfo(event, reference_i)); };
  EXPECT_EQ(PLXGlueDBOpenDatabase(event, "Mail Log", kPLXOpenMode_Shared, second), kPLXResult_DatabaseInUse);
  EXPECT_EQ(second, 77u);
  EXPECT_THAT(error(0), testing::HasSubstr("open"));
  EXPECT_EQ(PLXGlueDBOpenDatabase(event, "x", 1, second), kPLXResult_DatabaseValue);
  EXPECT_EQ(PLXGlueDBOpenDatabase(event, "a/b", 2, second), kPLXResult_DatabaseName);
  EXPECT_EQ(PLXGlueDBExecuteSearch(event, log, "Subject='O'Brien'"), kPLXResult_DatabaseSearch);
  EXPECT_THAT(error(log), testing::HasSubstr("character 12"));
  EXPECT_EQ(PLXGlueDBMoveFirstRecord(event, log), kPLXResult_DatabaseEnd) << "it found nothing";
  EXPECT_EQ(PLXGlueDBClearSearchResults(event, log), 0u);
  EXPECT_EQ(PLXGlueDBSetTextFieldValue(event, log, "Number", "many"), kPLXResult_DatabaseValue);
  EXPECT_THAT(error(log), testing::HasSubstr("\"many\""));
  EXPECT_EQ(PLXGlueDBSetLongTextFieldValue(event, log, "Message", PLXString("a\0b", 3)), 0u);
  EXPECT_EQ(PLXGlueDBGetLongTextFieldValue(event, log, "Message"), PLXString("a b"))
      << "what strangers send is kept";
  EXPECT_EQ(PLXGlueDBSetTextFieldValue(event, log, "none", "x"), kPLXResult_DatabaseNotFound);
  EXPECT_EQ(PLXGlueDBCreateRecord(event, log), 0u);
  EXPECT_EQ(PLXGlueDBSetTextFieldValue(event, log, "UIDL", "1"), 0u);
  EXPECT_EQ(PLXGlueDBAddRecord(event, log), kPLXResult_DatabaseNotUnique);
  EXPECT_EQ(PLXGlueDBInitialize(event, "no-such-source", "me", "a,b"), kPLXResult_DatabaseNotReachable);
  EXPECT_EQ(PLXGlueDBInitialize(event, "", "", ""), 0u);
  EXPECT_EQ(PLXGlueDBGetRecordCount(event, log), 2u);

  EXPECT_EQ(PLXGlueDBGetODBCFieldTypeCount(event), 7u);
  EXPECT_EQ(PLXGlueDBGetODBCFieldTypeInfoByName(event, "LONG TEXT", type), 0u);
  EXPECT_EQ(type, kPLXFieldType_LongText);
  EXPECT_EQ(PLXGlueDBSetLocking(event, log, 1), 0u);
  EXPECT_EQ(Text(PLXGlueDBGetDatabaseName(event, log)), "Mail Log");
  EXPECT_EQ(PLXGlueDBGetDatabaseCount(event), 1u);
  EXPECT_EQ(PLXGlueDBCloseDatabase(event, log), 0u);
  EXPECT_EQ(PLXGlueDBCloseDatabase(event, log), kPLXResult_DatabaseReference);
  EXPECT_EQ(PLXGlueDBMoveNextRecord(event, log), kPLXResult_DatabaseReference);
  EXPECT_THAT(error(log), testing::HasSubstr(std::to_string(log)));
  EXPECT_EQ(PLXGlueDBDeleteDatabase(event, "mail log"), 0u);
  EXPECT_EQ(PLXGlueDBTerminate(event), 0u);
}
