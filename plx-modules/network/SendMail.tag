// plxSendMail and its action: produce nothing and have no preferences yet.

static PLXUInt32 ProcessSendMail(_PLXAPI_ModuleProcessingInfo*, PLXString&) { return kPLXResult_Success; }

static PLXUInt32 ProcessSendMailAction(_PLXAPI_ModuleProcessingInfo*) { return kPLXResult_Success; }

// Its two sections of the preference page, numbered from 1.
static PLXString GetSendMailPreferencesHTML(_PLXAPI_ModuleProcessingInfo*, unsigned) { return PLXString(); }

static void SetSendMailPreferences(_PLXAPI_ModuleProcessingInfo*) {}
