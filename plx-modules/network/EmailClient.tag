// plxEmailClient: produces nothing and has no preferences yet.

static PLXUInt32 ProcessEmailClient(_PLXAPI_ModuleProcessingInfo*, PLXString&) { return kPLXResult_Success; }

// Its section of the preference page.
static PLXString EmailClient_GetPreferencesHTML(_PLXAPI_ModuleProcessingInfo*) { return PLXString(); }

static void EmailClient_SetPreferences(_PLXAPI_ModuleProcessingInfo*) {}
