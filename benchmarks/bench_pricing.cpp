// SPDX-License-Identifier: MIT
// Option pricing on one thread: full sets of price, delta, gamma, vega and theta a second, and
// implied volatilities a second, single calls and batches, beside QuantLib where it is installed.
//
//     bench_pricing [ROUNDS, default 7]
//
// One line per figure: subject workload figure value unit. What the contenders answer is compared.
//
// The chain is a board of 4,000 options on one future: strikes from 0.75 to 1.2 of it, a smile from
// 25 to 10 percent, 74 days. Each figure is the best of the rounds; contenders take turns within a
// round.
#include "bench_pricing.h"

#include "pricing/volat.h"
#include "support/bench.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <memory>

namespace {

constexpr std::size_t optionCount = 4000;
constexpr int repeats = 50;

Chain makeChain()
{
    Chain chain;
    chain.underlying = 3213.625;
    chain.sqrtTime = sqrtTimeToExpiry(74 * 86400);
    for (std::size_t i = 0; i < optionCount; ++i) {
        // A fixed stride through the strikes: neighbours in the arrays have little in common.
        const double place = double(i * 1601 % optionCount) / double(optionCount);
        chain.strikes.push_back(chain.underlying * (0.75 + 0.45 * place));
        chain.volats.push_back(25 - 15 * place);
        chain.puts.push_back(chain.strikes.back() < chain.underlying); // out of the money
    }
    return chain;
}

VolatInputParams inputOf(const Chain& chain)
{
    VolatInputParams in;
    in.underlying = chain.underlying;
    in.sqrtTime = chain.sqrtTime;
    return in;
}

double total(const Chain& chain, std::size_t i, const VolatOutputParams& out)
{
    return (chain.puts[i] ? out.pricePut + out.deltaPut : out.priceCall + out.deltaCall) +
           out.gamma + out.vega + out.theta;
}

Answer singleGreeks(const Chain& chain)
{
    Answer answer;
    VolatInputParams in = inputOf(chain);
    VolatOutputParams out;
    for (std::size_t i = 0; i < optionCount; ++i) {
        in.strike = chain.strikes[i];
        calcVolatParams(out, in, chain.volats[i]);
        answer.sum += total(chain, i, out);
    }
    return answer;
}

Answer batchGreeks(const Chain& chain)
{
    static std::vector<VolatOutputParams> out(optionCount);
    calcVolatParamsBatch(out.data(), inputOf(chain), chain.strikes.data(), chain.volats.data(),
                         int(optionCount));
    Answer answer;
    for (std::size_t i = 0; i < optionCount; ++i)
        answer.sum += total(chain, i, out[i]);
    return answer;
}

std::vector<double> modelPrices(const Chain& chain)
{
    std::vector<double> prices;
    VolatInputParams in = inputOf(chain);
    for (std::size_t i = 0; i < optionCount; ++i) {
        in.strike = chain.strikes[i];
        const auto pair = theorPriceCallPut(in, chain.volats[i] / 100);
        prices.push_back(chain.puts[i] ? pair.second : pair.first);
    }
    return prices;
}

void count(Answer& answer, double volat)
{
    if (volat < 0)
        ++answer.unsolved;
    else
        answer.sum += volat;
}

Answer singleImplied(const Chain& chain, const std::vector<double>& prices, double shift)
{
    Answer answer;
    VolatInputParams in = inputOf(chain);
    for (std::size_t i = 0; i < optionCount; ++i) {
        in.strike = chain.strikes[i];
        const double start = shift == 0 ? 0 : chain.volats[i] + shift;
        count(answer, volatByTheorPrice(in, chain.puts[i], prices[i], start, gc_dVolatMinDefault,
                                        gc_dVolatMaxDefault, 1e-8, 1e-8));
    }
    return answer;
}

Answer reasonedImplied(const Chain& chain, const std::vector<double>& prices)
{
    Answer answer;
    VolatInputParams in = inputOf(chain);
    for (std::size_t i = 0; i < optionCount; ++i) {
        in.strike = chain.strikes[i];
        count(answer, impliedVolat(in, chain.puts[i], prices[i]).volat);
    }
    return answer;
}

Answer batchImplied(const Chain& chain, const std::vector<double>& prices)
{
    static std::vector<double> volats(optionCount);
    const std::unique_ptr<bool[]> puts(new bool[optionCount]);
    std::copy(chain.puts.begin(), chain.puts.end(), puts.get());
    volatByTheorPriceBatch(volats.data(), inputOf(chain), chain.strikes.data(), puts.get(),
                           prices.data(), nullptr, VolatSearch(), int(optionCount));
    Answer answer;
    for (double volat : volats)
        count(answer, volat);
    return answer;
}

struct Contender
{
    const char* name;
    const char* figure;
    std::function<Answer()> run;
    Answer answer;
    double bestSeconds;
};

void measure(std::vector<Contender>& contenders, int rounds)
{
    for (int round = 0; round < rounds; ++round) {
        for (Contender& contender : contenders) {
            const double time = bench::timed([&] {
                for (int i = 0; i < repeats; ++i)
                    contender.answer = contender.run();
            });
            contender.bestSeconds = std::min(contender.bestSeconds, time);
        }
    }
    for (const Contender& contender : contenders) {
        // Those of one kind must come to the same.
        const auto first = std::find_if(contenders.begin(), contenders.end(), [&](const auto& c) {
            return c.figure[0] == contender.figure[0];
        });
        bench::require(std::abs(contender.answer.sum / first->answer.sum - 1) < 1e-5 &&
                           contender.answer.unsolved == first->answer.unsolved,
                       contender.name, "the answers differ");
        bench::report(contender.name, "pricing", contender.figure,
                      double(optionCount) * repeats / contender.bestSeconds / 1e6, "M/s");
    }
}

} // namespace

int main(int argc, char** argv)
{
    const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 7;
    const Chain chain = makeChain();
    const std::vector<double> prices = modelPrices(chain);
    std::vector<Contender> contenders;
    const auto add = [&contenders](const char* name, const char* figure,
                                   std::function<Answer()> run) {
        contenders.push_back({name, figure, std::move(run), Answer(), 1e9});
    };
    add("livetable", "greeks", [&] { return singleGreeks(chain); });
    add("livetable", "greeks_batch", [&] { return batchGreeks(chain); });
    add("livetable", "implied", [&] { return singleImplied(chain, prices, 0); });
    add("livetable", "implied_from_1_percent_off", [&] { return singleImplied(chain, prices, 1); });
    add("livetable", "implied_with_reason", [&] { return reasonedImplied(chain, prices); });
    add("livetable", "implied_batch", [&] { return batchImplied(chain, prices); });
#ifdef HAVE_QUANTLIB
    const std::vector<double> peerPrices = quantlibPrices(chain);
    add("quantlib", "greeks", [&] { return quantlibGreeks(chain); });
    add("quantlib", "implied", [&] { return quantlibImplied(chain, peerPrices, 1e-8); });
#endif
    measure(contenders, rounds);
    return 0;
}
