#include "GlueRows.h"

namespace {

GlueRows Rows() {
  return GlueRows(
      {
          {"MIni 'dsn,ada,p,w'", RUN(DBInitialize, "dsn", "ada", "p,w")},
          {"MTrm", RUN(DBTerminate)},
          {"MOSF [?]", RUN(DBGetODBCSupportFlags), "11", "0"},
          {"MOCF [?]", RUN(DBGetODBCCursorFlags), "12", "0"},
          {"MOFT 3 >32 ?", RUN(DBGetODBCFieldTypeInfo, 3, out.text, out.word), "0 INT 4"},
          {"MOFI >32 ? [3]", RUN(DBGetODBCFieldTypeInfoByIndex, 3, out.text, out.word), "0 INT 5"},
          {"MDFN 'INT' ?", RUN(DBGetODBCFieldTypeInfoByName, "INT", out.word), "0 6"},
          {"MOFC [?]", RUN(DBGetODBCFieldTypeCount), "13", "0"},
          {"MDEI 7 >32", RUN(DBGetErrorInfo, 7), "the disk is full", ""},

          {"MDCr 'log'", RUN(DBCreateDatabase, "log")},
          {"MDOp 'log' 3 ? ''", RUN(DBOpenDatabase, "log", kPLXOpenMode_Exclusive, out.word), "0 7"},
          {"MDOp 'log' 2 ? 'pw'", RUN(DBOpenDatabase, "log", kPLXOpenMode_Shared, out.word, "pw"), "0 7"},
          {"MDCl 7", RUN(DBCloseDatabase, 7)},
          {"MDDl 'log'", RUN(DBDeleteDatabase, "log")},
          {"MDNm 7 >32", RUN(DBGetDatabaseName, 7), "log", ""},
          {"MDNI >32 [1]", RUN(DBGetDatabaseNameByIndex, 1, out.text), "0 mail"},
          {"MDCt [?]", RUN(DBGetDatabaseCount), "14", "0"},
          {"MLck 7 2", RUN(DBSetLocking, 7, 2)},

          {"MFAd 7 'id' #6060064",
           RUN(DBAddField, 7, "id", kPLXFieldAttribute_Unique | kPLXFieldAttribute_Indexed | 0x60064)},
          {"MFAd 7 'on' #10000", RUN(DBAddBooleanField, 7, "on")},
          {"MFAd 7 'n' #20000", RUN(DBAddIntegerField, 7, "n")},
          {"MFAd 7 'u' #30000", RUN(DBAddUIntegerField, 7, "u")},
          {"MFAd 7 'f' #40000", RUN(DBAddFloatField, 7, "f")},
          {"MFAd 7 't' #6012C", RUN(DBAddTextField, 7, "t", 300)},
          {"MFAd 7 't' #60001", RUN(DBAddTextField, 7, "t", 0x10001)},
          {"MFAd 7 'l' #70000", RUN(DBAddLongTextField, 7, "l")},
          {"MFDl 7 'n'", RUN(DBDeleteField, 7, "n")},
          {"MFFI 7 'n' ?", RUN(DBGetFieldInfo, 7, "n", out.word), "0 8"},
          {"MFII 7 >32 ? [2]", RUN(DBGetFieldInfo, 7, 2, out.text, out.word), "0 Name 9"},
          {"MFCt 7 [?]", RUN(DBGetFieldCount, 7), "15", "0"},

          {"MRCr 7", RUN(DBCreateRecord, 7)},
          {"MRAd 7", RUN(DBAddRecord, 7)},
          {"MRUp 7", RUN(DBUpdateRecord, 7)},
          {"MRDA 7", RUN(DBDeleteAllRecords, 7)},
          {"MRDl 7 #20000000'4'", RUN(DBDeleteRecord, 7, "4")},
          {"MRDl 7 #30000000/4=4", RUN(DBDeleteRecord, 7, 4u)},
          {"MRDl 7 #40000000/4=-4", RUN(DBDeleteRecord, 7, -4)},
          {"MRDl 7 #50000000/8=4.5", RUN(DBDeleteRecord, 7, 4.5)},
          {"MRCt 7 [?]", RUN(DBGetRecordCount, 7), "16", "0"},

          {"MFSV 7 'f' #30000000/4=1", RUN(DBSetBooleanFieldValue, 7, "f", true)},
          {"MFSV 7 'f' #30000000/4=0", RUN(DBSetBooleanFieldValue, 7, "f", false)},
          {"MFSV 7 'f' #40000000/4=-5", RUN(DBSetIntegerFieldValue, 7, "f", -5)},
          {"MFSV 7 'f' #50000000/8=0.5", RUN(DBSetIntegerFieldValue, 7, "f", 0.5)},
          {"MFSV 7 'f' #30000000/4=4294967295", RUN(DBSetIntegerFieldValue, 7, "f", 0xFFFFFFFFu)},
          {"MFSV 7 'f' #20000000'2451812700405.25'",
           RUN(DBSetIntegerFieldValue, 7, "f", PLXNumber("2451812700405.25"))},
          {"MFSV 7 'f' #30000000/4=6", RUN(DBSetUIntegerFieldValue, 7, "f", 6)},
          {"MFSV 7 'f' #50000000/8=-1.5", RUN(DBSetFloatFieldValue, 7, "f", -1.5)},
          {"MFSV 7 'f' #20000000''", RUN(DBSetNumberFieldValue, 7, "f", PLXNumber())},
          {"MFSV 7 'f' #20000000'O'Brien'", RUN(DBSetTextFieldValue, 7, "f", "O'Brien")},
          {"MFSV 7 'f' #20000000''", RUN(DBSetLongTextFieldValue, 7, "f", "")},
          {"MFGV 7 'f' #30000000/4", RUN(DBGetBooleanFieldValue, 7, "f"), "true", "false"},
          {"MFGV 7 'f' #40000000/4", RUN(DBGetIntegerFieldValue, 7, "f"), "2", "0"},
          {"MFGV 7 'f' #30000000/4", RUN(DBGetUIntegerFieldValue, 7, "f"), "2", "0"},
          {"MFGV 7 'f' #50000000/8", RUN(DBGetFloatFieldValue, 7, "f"), "2.25", "0"},
          {"MFGV 7 'f' #50000000/8", RUN(DBGetNumberFieldValue, 7, "f"), "2.25", "0"},
          {"MFGV 7 'f' #20000000>64", RUN(DBGetTextFieldValue, 7, "f"), "a value", ""},
          {"MFGV 7 'f' #20000000>64", RUN(DBGetLongTextFieldValue, 7, "f"), "a value", ""},

          {"MSEc 7 'Name='x''", RUN(DBExecuteSearch, 7, "Name='x'")},
          {"MSRC 7 [?]", RUN(DBGetResultCount, 7), "17", "0"},
          {"MSCl 7", RUN(DBClearSearchResults, 7)},
          {"MMFR 7", RUN(DBMoveFirstRecord, 7)},
          {"MMLR 7", RUN(DBMoveLastRecord, 7)},
          {"MMPR 7", RUN(DBMovePrevRecord, 7)},
          {"MMNR 7", RUN(DBMoveNextRecord, 7)},
          {"MMTR 7 #20000000'4'", RUN(DBMoveToRecord, 7, "4")},
          {"MMTR 7 #30000000/4=4", RUN(DBMoveToRecord, 7, 4u)},
          {"MMTR 7 #40000000/4=-4", RUN(DBMoveToRecord, 7, -4)},
          {"MMTR 7 #50000000/8=4.5", RUN(DBMoveToRecord, 7, 4.5)},
          {"MMJp 7 #FFFFFFFE", RUN(DBJump, 7, -2)},
          {"MExp 7 '/a.csv' ? ';'", RUN(DBExport, 7, "/a.csv", out.word, ";"), "0 18"},
          {"MImp 7 '/a.csv' ?", RUN(DBImport, 7, "/a.csv", out.word), "0 19"},
      },
      [](SimulatedHost& host_o) {
        host_o.fieldValue = 2.25;
        host_o.texts = {
            {PLXCode("MOFT"), "INT"},    {PLXCode("MOFI"), "INT"},  {PLXCode("MDEI"), "the disk is full"},
            {PLXCode("MDNm"), "log"},    {PLXCode("MDNI"), "mail"}, {PLXCode("MFII"), "Name"},
            {PLXCode("MFGV"), "a value"}};
        host_o.numbers = {{PLXCode("MOSF"), 11}, {PLXCode("MOCF"), 12}, {PLXCode("MOFT"), 4},
                          {PLXCode("MOFI"), 5},  {PLXCode("MDFN"), 6},  {PLXCode("MOFC"), 13},
                          {PLXCode("MDOp"), 7},  {PLXCode("MDCt"), 14}, {PLXCode("MFFI"), 8},
                          {PLXCode("MFII"), 9},  {PLXCode("MFCt"), 15}, {PLXCode("MRCt"), 16},
                          {PLXCode("MSRC"), 17}, {PLXCode("MExp"), 18}, {PLXCode("MImp"), 19}};
      });
}

}  // namespace

TEST(GlueDatabase, CallsTheServerOnceWithItsArguments) { Rows().ExpectOneCallWithTheArguments(); }
TEST(GlueDatabase, StaysNeutralWhenTheServerRefuses) { Rows().ExpectNeutralityOnFailure(); }
TEST(GlueDatabase, AsksOnceMoreForWhatDidNotFit) { Rows().ExpectOneMoreTry(); }
TEST(GlueDatabase, LetsExceptionsPass) { Rows().ExpectPassageOfExceptions(); }

TEST(GlueDatabase, MovesALongTextWholeAndWithoutACopy) {
  SimulatedHost host;
  std::string const& value = host.texts[kPLXDatabase_GetFieldValue] = std::string(64 << 20, 'v');
  PLXString const text = PLXGlueDBGetLongTextFieldValue(host.Event(), 7, "f");
  EXPECT_TRUE(text.CompareTo(value.data(), 64 << 20, 0) == kPLXCompare_Equal);
  EXPECT_EQ(host.calls.size(), 2u);
  void const* sent = nullptr;
  _PLXAPI_ModuleProcessingInfo info = {
      &sent, 0, nullptr,
      [](PLXConnectionID sent_o, PLXUInt32, void*, void*, void*, void* value_i, void*, void*) {
        *static_cast<void**>(sent_o) = value_i;
        return kPLXResult_Success;
      }};
  EXPECT_EQ(PLXGlueDBSetLongTextFieldValue(&info, 7, "f", text), 0u);
  EXPECT_EQ(sent, text.GetCStringAccess());
}

TEST(GlueDatabase, FailsWhereTheServerHasNoDatabases) {
  _PLXAPI_ModuleProcessingInfo info = *SimulatedHost().Event();
  info.PLXServerDatabaseFunction = nullptr;
  EXPECT_NE(PLXGlueDBTerminate(&info), 0u);
  EXPECT_EQ(ToString(PLXGlueDBGetErrorInfo(&info, 7)), "");
}

TEST(GlueDatabase, ReducesAnEnginesTypes) {
  std::vector<std::pair<PLXUInt32, std::vector<PLXUInt32>>> const rows = {
      {0x10000, {0x01, 0x87}},
      {0x20000, {0x44, 0x45, 0x86}},
      {0x40000, {0x43, 0x46, 0x47, 0x48}},
      {0x50000, {0x42, 0x85}},
      {0x60000, {0x41, 0x49, 0x4A, 0x4B, 0x4C}},
      {0x70000, {0x81, 0x82, 0x83, 0x84, 0x88, 0x89, 0x8A}}};
  for (auto const& [type, codes] : rows) {
    for (PLXUInt32 const code : codes) EXPECT_EQ(RealType(0x04001234 | code << 16), type) << std::hex << code;
  }
  for (PLXUInt32 const code : {0u, 1u, 0x30u, 0x40u, 0x4Du, 0x80u, 0x8Bu, 0xFFu}) {
    EXPECT_EQ(RealType(code << 16), code << 16);
  }
}
