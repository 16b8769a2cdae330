// plxFTP: accepted wherever it stands, and produces nothing.

static PLXUInt32 ProcessFTP(_PLXAPI_ModuleProcessingInfo*, PLXString&) { return kPLXResult_Success; }
