// plxPOP: produces nothing yet.

static PLXUInt32 ProcessPOP(_PLXAPI_ModuleProcessingInfo*, PLXString&) { return kPLXResult_Success; }
