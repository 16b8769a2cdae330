// The two sections of the preference page that govern plxSendMail.

static constexpr char kSendMailControl_UseMailServerName[] = "plxSendMailPreference_UseMailServerName";
static constexpr char kSendMailControl_MailServerName[] = "plxSendMailPreference_mailServerName";
static constexpr char kSendMailControl_UseGMT[] = "plxSendMailPreference_UseGMT";
static constexpr char kSendMailControl_GMTOffset[] = "plxSendMailPreference_GMTOffset";

// Offsets are offered in half hours, the finest that the zone of a Date header shows.
static constexpr int kSendMailOffsetsPerHour = 2;

static PLXString SendMail_GetPreference(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& name_i,
                                        PLXString const& default_i) {
  PLXString value;
  PLXGlueGetPreference(info_i, name_i, value, default_i);
  return value;
}

static void SendMail_AppendOption(PLXString const& value_i, PLXString const& label_i, bool isSelected_i,
                                  PLXString& html_io) {
  html_io.Append("<option value=\"").Append(value_i).Append(isSelected_i ? "\" selected>" : "\">");
  html_io.Append(label_i).Append("</option>");
}

static PLXString SendMail_GetMailServerHTML(_PLXAPI_ModuleProcessingInfo* info_i) {
  PLXStringID const chosen(
      SendMail_GetPreference(info_i, kSendMailPreference_UseMailServerName, kSendMailUseMailServer_Never),
      PLXStringID::kIgnoreCase);
  PLXString html("<table width=\"95%\" border=\"0\" cellspacing=\"0\" cellpadding=\"1\" align=\"center\">");
  html.ReserveToAppend(2048);
  html.Append("\r\n<tr><td><select aria-label=\"Use of the mail server\" name=\"");
  html.Append(kSendMailControl_UseMailServerName).Append("\">");
  bool const isByDefault = chosen == kSendMailUseMailServer_ByDefault;
  bool const isAlways = chosen == kSendMailUseMailServer_Always;
  SendMail_AppendOption("never", "Never", !isByDefault && !isAlways, html);
  SendMail_AppendOption("byDefault", "By default", isByDefault, html);
  SendMail_AppendOption("always", "Always", isAlways, html);
  html.Append("</select> use <input type=\"text\" aria-label=\"Mail server\" size=\"30\" name=\"");
  html.Append(kSendMailControl_MailServerName).Append("\" value=\"");
  AppendMarkupText(SendMail_GetPreference(info_i, kSendMailPreference_MailServerName, PLXString()), html);
  html.Append("\"> as the mail server.</td></tr>\r\n<tr><td>");
  html.Append(
      "The <i>Never</i> option will require a value to always be passed in the mailServer parameter of the "
      "&lt;plxSendMail&gt; tag.<br><br>The <i>By default</i> option will use the above value for the "
      "mailServer parameter if it is not defined in the &lt;plxSendMail&gt; tag.<br><br>The <i>Always</i> "
      "option will use the above value for the mailServer parameter of the &lt;plxSendMail&gt; tag, even if "
      "it is defined in the tag's parameter list.");
  return html.Append("</td></tr>\r\n</table>");
}

static PLXString SendMail_GetGMTOffsetHTML(_PLXAPI_ModuleProcessingInfo* info_i) {
  bool const isReturned(
      SendMail_GetPreference(info_i, kSendMailPreference_ReturnGMTOffsetByDefault, kNetworkPreference_No));
  PLXNumber stored(SendMail_GetPreference(info_i, kSendMailPreference_GMTOffset, "0"));
  if (stored.IsNull()) stored = 0;
  PLXString html("<table width=\"95%\" border=\"0\" cellspacing=\"0\" cellpadding=\"1\" align=\"center\">");
  html.ReserveToAppend(4096);
  html.Append("\r\n<tr><td><label><input type=\"checkbox\" name=\"").Append(kSendMailControl_UseGMT);
  html.Append("\" value=\"yes\"").Append(isReturned ? " CHECKED>" : ">");
  html.Append("Return the date and time information </label>");
  html.Append("<select aria-label=\"Hours relative to GMT\" name=\"");
  html.Append(kSendMailControl_GMTOffset).Append("\">");
  for (int step = kSendMailGMTOffsetLowerBound * kSendMailOffsetsPerHour;
       step <= kSendMailGMTOffsetUpperBound * kSendMailOffsetsPerHour; ++step) {
    PLXNumber const hours = PLXNumber(step) / kSendMailOffsetsPerHour;
    PLXString const value = hours.GetStringRepresentation();
    SendMail_AppendOption(value, value, hours == stored, html);
  }
  return html.Append("</select> hours relative to GMT by default.</td></tr>\r\n</table>");
}

// Section 1 is about the mail server, section 2 about the Date header.
static PLXString GetSendMailPreferencesHTML(_PLXAPI_ModuleProcessingInfo* info_i, unsigned section_i) {
  return section_i == 1 ? SendMail_GetMailServerHTML(info_i) : SendMail_GetGMTOffsetHTML(info_i);
}

// What no control of the form can say counts as the default.
static void SetSendMailPreferences(_PLXAPI_ModuleProcessingInfo* info_i) {
  PLXString text;
  PLXGlueGetPostArgument(info_i, kSendMailControl_UseMailServerName, 0, text, PLXString());
  PLXStringID const chosen(text, PLXStringID::kIgnoreCase);
  PLXGlueSetPreference(info_i, kSendMailPreference_UseMailServerName,
                       chosen == kSendMailUseMailServer_ByDefault || chosen == kSendMailUseMailServer_Always
                           ? text
                           : kSendMailUseMailServer_Never);
  PLXGlueGetPostArgument(info_i, kSendMailControl_MailServerName, 0, text, PLXString());
  text.Trim(" \t\r\n");
  PLXGlueSetPreference(info_i, kSendMailPreference_MailServerName, text);
  PLXGlueGetPostArgument(info_i, kSendMailControl_UseGMT, 0, text, PLXString());
  PLXGlueSetPreference(info_i, kSendMailPreference_ReturnGMTOffsetByDefault,
                       static_cast<bool>(text) ? kNetworkPreference_Yes : kNetworkPreference_No);
  PLXGlueGetPostArgument(info_i, kSendMailControl_GMTOffset, 0, text, "0");
  PLXNumber const hours(text);
  bool const isValid =
      hours.IsNotNull() && hours >= kSendMailGMTOffsetLowerBound && hours <= kSendMailGMTOffsetUpperBound;
  PLXGlueSetPreference(info_i, kSendMailPreference_GMTOffset,
                       isValid ? hours.GetStringRepresentation() : PLXString("0"));
}
