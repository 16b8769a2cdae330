#include "PLXPOP3Answer.h"

#include <algorithm>
#include <iterator>

#include "PLXNetworkingStream.h"

PLXPOP3Answer::End PLXPOP3Answer::OfAnswerTo(PLXString const& line_i) {
  auto const begins = [&line_i](char const* word_i) {
    return line_i.BeginsWith(word_i, kPLXOption_IgnoreCase);
  };
  if (begins("RETR")) return End::Message;
  // With a number behind them, the first two are answered with one line.
  constexpr char const* kListings[] = {"UIDL\r\n", "LIST\r\n", "CAPA\r\n", "TOP "};
  return std::any_of(std::begin(kListings), std::end(kListings), begins) ? End::Listing : End::Line;
}

bool PLXPOP3Answer::Append(PLXString const& burst_i) {
  if (burst_i.GetLength() > PLXNetworkingStream::kMaximumResponseLength - myText.GetLength()) return false;
  if (myText.IsEmpty()) {
    myText = burst_i;
    return true;
  }
  myText.ReserveToAppend(burst_i.GetLength());
  myText += burst_i;
  return true;
}

bool PLXPOP3Answer::IsComplete() const {
  bool const isStatus = myText.BeginsWith("+") || myText.BeginsWith("-");
  return !isStatus || myText.EndsWith(IsPositive() ? GetEndText() : "\n");
}
