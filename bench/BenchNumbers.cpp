#include <benchmark/benchmark.h>
#include <boost/multiprecision/cpp_dec_float.hpp>
#include <random>
#include <string>
#include <vector>

#include "PLXNumber.h"

// Decimals beside Boost.Multiprecision's cpp_dec_float of as many digits, on the same texts. The peer floats:
// it keeps some digits more than asked for and does not round to a scale, so it is spared the rounding and
// the check of the range that each of our results includes. Its values lie in place, ours in a string of the
// heap.

namespace {

namespace mp = boost::multiprecision;

template <unsigned kDigits>
using Peer = mp::number<mp::cpp_dec_float<kDigits>, mp::et_off>;

constexpr std::size_t kInputs = 256;  // more than a branch predictor learns by heart

// Values with every digit used: half of the number's length, so that a product fits, half of it behind the
// point. Divisors are a quarter as long, so that quotients fill the number.
template <int kLength>
struct Inputs {
  static constexpr int kScale = kLength == PLXNumber::DefaultLength ? PLXNumber::DefaultScale : kLength / 2;

  Inputs() {
    std::mt19937 random(kLength);
    auto const digits = [&random](int count_i) {
      std::string text(1, static_cast<char>('1' + random() % 9));
      while (static_cast<int>(text.size()) < count_i) text += static_cast<char>('0' + random() % 10);
      return text;
    };
    for (std::size_t index = 0; index < kInputs; ++index) {
      whole.push_back(digits(kLength - kScale) + "." + digits(kScale - 1) + "7");
      half.push_back(digits(kLength / 4) + "." + digits(kScale - 1) + "7");
      quarter.push_back(digits(kLength / 8) + "." + digits(kScale / 2 - 1) + "7");
    }
  }
  std::vector<std::string> whole, half, quarter;
};

template <int kLength>
Inputs<kLength> const& GetInputs() {
  static Inputs<kLength> const inputs;
  return inputs;
}

template <int kLength>
std::vector<PLXNumber> MakeNumbers(std::vector<std::string> const& texts_i) {
  std::vector<PLXNumber> numbers;
  for (std::string const& text : texts_i) {
    numbers.emplace_back(kLength, Inputs<kLength>::kScale, PLXString(text.c_str()));
  }
  return numbers;
}

template <int kLength>
std::vector<Peer<kLength>> MakePeers(std::vector<std::string> const& texts_i) {
  return {texts_i.begin(), texts_i.end()};
}

// Runs one operation over all pairs of inputs.
template <typename Values, typename Function>
void Run(benchmark::State& state_io, Values const& left_i, Values const& right_i, Function function_i) {
  std::size_t index = 0;
  for (auto _ : state_io) {
    function_i(left_i[index % kInputs], right_i[(index * 7 + 1) % kInputs]);
    ++index;
  }
}

template <int kLength>
void BM_NumberParse(benchmark::State& state_io) {
  std::vector<PLXString> texts;
  for (std::string const& text : GetInputs<kLength>().whole) texts.emplace_back(text.c_str());
  PLXNumber number(kLength, Inputs<kLength>::kScale);
  Run(state_io, texts, texts, [&](PLXString const& text_i, PLXString const&) {
    number.Assign(text_i);
    benchmark::DoNotOptimize(number);
  });
}

template <int kLength>
void BM_NumberParse_CppDecFloat(benchmark::State& state_io) {
  auto const& texts = GetInputs<kLength>().whole;
  Peer<kLength> number;
  Run(state_io, texts, texts, [&](std::string const& text_i, std::string const&) {
    number.assign(text_i);
    benchmark::DoNotOptimize(number);
  });
}

template <int kLength>
void BM_NumberPrint(benchmark::State& state_io) {
  auto const numbers = MakeNumbers<kLength>(GetInputs<kLength>().whole);
  Run(state_io, numbers, numbers, [](PLXNumber const& number_i, PLXNumber const&) {
    benchmark::DoNotOptimize(number_i.GetStringRepresentation());
  });
}

template <int kLength>
void BM_NumberPrint_CppDecFloat(benchmark::State& state_io) {
  auto const numbers = MakePeers<kLength>(GetInputs<kLength>().whole);
  Run(state_io, numbers, numbers, [](Peer<kLength> const& number_i, Peer<kLength> const&) {
    benchmark::DoNotOptimize(number_i.str(Inputs<kLength>::kScale, std::ios_base::fixed));
  });
}

struct Sum {
  template <typename T>
  static T Of(T const& left_i, T const& right_i) {
    return left_i + right_i;
  }
};
struct Product {
  template <typename T>
  static T Of(T const& left_i, T const& right_i) {
    return left_i * right_i;
  }
};
struct Quotient {
  template <typename T>
  static T Of(T const& left_i, T const& right_i) {
    return left_i / right_i;
  }
};

template <int kLength, typename Operation>
void BM_Number(benchmark::State& state_io) {
  auto const left = MakeNumbers<kLength>(GetInputs<kLength>().half);
  auto const right = MakeNumbers<kLength>(GetInputs<kLength>().quarter);
  PLXNumber result;
  Run(state_io, left, right, [&](PLXNumber const& left_i, PLXNumber const& right_i) {
    result = Operation::Of(left_i, right_i);
    benchmark::DoNotOptimize(result);
  });
}

template <int kLength, typename Operation>
void BM_Number_CppDecFloat(benchmark::State& state_io) {
  auto const left = MakePeers<kLength>(GetInputs<kLength>().half);
  auto const right = MakePeers<kLength>(GetInputs<kLength>().quarter);
  Peer<kLength> result;
  Run(state_io, left, right, [&](Peer<kLength> const& left_i, Peer<kLength> const& right_i) {
    result = Operation::Of(left_i, right_i);
    benchmark::DoNotOptimize(result);
  });
}

// In place nothing is allocated, as in a running total. Each factor is followed by its inverse, so that a
// running product keeps its size.
struct AddInPlace {
  template <typename T>
  static void To(T& value_io, T const& operand_i) {
    value_io += operand_i;
  }
};
struct MultiplyInPlace {
  template <typename T>
  static void To(T& value_io, T const& operand_i) {
    value_io *= operand_i;
  }
};
struct DivideInPlace {
  template <typename T>
  static void To(T& value_io, T const& operand_i) {
    value_io /= operand_i;
  }
};

template <int kLength>
std::vector<std::string> MakeFactors() {
  constexpr int kScale = Inputs<kLength>::kScale;
  std::vector<std::string> factors;
  for (std::string const& digits : GetInputs<kLength>().quarter) {
    if (factors.size() == kInputs) break;
    factors.push_back("1." + digits.substr(digits.find('.') + 1));
    factors.push_back((1 / Peer<kLength>(factors.back())).str(kScale, std::ios_base::fixed));
  }
  return factors;
}

template <int kLength, typename Operation>
void BM_Number_InPlace(benchmark::State& state_io) {
  auto const operands = MakeNumbers<kLength>(MakeFactors<kLength>());
  PLXNumber value(kLength, Inputs<kLength>::kScale, PLXString(GetInputs<kLength>().half[0].c_str()));
  Run(state_io, operands, operands, [&](PLXNumber const& operand_i, PLXNumber const&) {
    Operation::To(value, operand_i);
    benchmark::DoNotOptimize(value);
  });
}

template <int kLength, typename Operation>
void BM_Number_InPlace_CppDecFloat(benchmark::State& state_io) {
  auto const operands = MakePeers<kLength>(MakeFactors<kLength>());
  Peer<kLength> value(GetInputs<kLength>().half[0]);
  Run(state_io, operands, operands, [&](Peer<kLength> const& operand_i, Peer<kLength> const&) {
    Operation::To(value, operand_i);
    benchmark::DoNotOptimize(value);
  });
}

// Hard: the divisor's highest limb is half the base and its next is full of nines, so guesses are wrong and
// have to be taken back.
template <int kLength>
void BM_NumberDivide_WrongGuesses(benchmark::State& state_io) {
  std::string const scale(kLength / 4, '9');
  std::vector<std::string> const dividends(kInputs, "49" + scale + "." + std::string(kLength / 2, '9'));
  std::vector<std::string> const divisors(kInputs, "500000000000000000." + std::string(kLength / 2, '9'));
  auto const left = MakeNumbers<kLength>(dividends);
  auto const right = MakeNumbers<kLength>(divisors);
  Run(state_io, left, right,
      [](PLXNumber const& left_i, PLXNumber const& right_i) { benchmark::DoNotOptimize(left_i / right_i); });
}

BENCHMARK(BM_NumberParse<38>);
BENCHMARK(BM_NumberParse_CppDecFloat<38>);
BENCHMARK(BM_NumberParse<100>);
BENCHMARK(BM_NumberParse_CppDecFloat<100>);
BENCHMARK(BM_NumberPrint<38>);
BENCHMARK(BM_NumberPrint_CppDecFloat<38>);
BENCHMARK(BM_NumberPrint<100>);
BENCHMARK(BM_NumberPrint_CppDecFloat<100>);
BENCHMARK(BM_Number_InPlace<38, AddInPlace>);
BENCHMARK(BM_Number_InPlace_CppDecFloat<38, AddInPlace>);
BENCHMARK(BM_Number_InPlace<100, AddInPlace>);
BENCHMARK(BM_Number_InPlace_CppDecFloat<100, AddInPlace>);
BENCHMARK(BM_Number_InPlace<38, MultiplyInPlace>);
BENCHMARK(BM_Number_InPlace_CppDecFloat<38, MultiplyInPlace>);
BENCHMARK(BM_Number_InPlace<100, MultiplyInPlace>);
BENCHMARK(BM_Number_InPlace_CppDecFloat<100, MultiplyInPlace>);
BENCHMARK(BM_Number_InPlace<38, DivideInPlace>);
BENCHMARK(BM_Number_InPlace_CppDecFloat<38, DivideInPlace>);
BENCHMARK(BM_Number_InPlace<100, DivideInPlace>);
BENCHMARK(BM_Number_InPlace_CppDecFloat<100, DivideInPlace>);
BENCHMARK(BM_Number<38, Sum>);
BENCHMARK(BM_Number_CppDecFloat<38, Sum>);
BENCHMARK(BM_Number<100, Sum>);
BENCHMARK(BM_Number_CppDecFloat<100, Sum>);
BENCHMARK(BM_Number<38, Product>);
BENCHMARK(BM_Number_CppDecFloat<38, Product>);
BENCHMARK(BM_Number<100, Product>);
BENCHMARK(BM_Number_CppDecFloat<100, Product>);
BENCHMARK(BM_Number<38, Quotient>);
BENCHMARK(BM_Number_CppDecFloat<38, Quotient>);
BENCHMARK(BM_Number<100, Quotient>);
BENCHMARK(BM_Number_CppDecFloat<100, Quotient>);
BENCHMARK(BM_NumberDivide_WrongGuesses<100>);

}  // namespace
