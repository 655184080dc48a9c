// SPDX-License-Identifier: MIT
// N1: decimals on one thread: reading and printing prices, adding and comparing numbers of one
// scale, rescaling from four digits to two. N3: the checksum of 88 MB. Ours beside Intel's
// decimal64 and ISA-L's CRC.
//
//     bench_numbers [N1] [N3]
//
// The contenders take turns, and what they answer is compared.
#include "numbers.h"

#include "support/bench.h"
#include "value/checksum.h"
#include "value/decimal.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace bench {
namespace {

constexpr size_t count = 4096; // both operands stay in the first cache
constexpr int repeats = 200;

class Decimals : public DecimalPeer
{
public:
    const char* name() const override { return "livetable"; }
    void parse(const std::vector<Text>& texts) override
    {
        for (size_t i = 0; i < count; ++i)
            decimal::tryParse(texts[i].chars, texts[i].length, &values[i]);
    }
    void format(std::vector<Text>& texts) override
    {
        for (size_t i = 0; i < count; ++i)
            texts[i].length = values[i].toChars(texts[i].chars);
    }
    void add() override
    {
        for (size_t i = 0; i < count; ++i)
            sums[i] = values[i] + values[count - 1 - i];
    }
    int compare() override
    {
        int less = 0;
        for (size_t i = 0; i < count; ++i)
            less += values[i] < values[count - 1 - i];
        return less;
    }
    void rescale() override
    {
        for (size_t i = 0; i < count; ++i)
            sums[i] = decimal(values[i]).setScale(2);
    }
    double sum(size_t i) const override { return sums[i].toDouble(); }

private:
    std::vector<decimal> values = std::vector<decimal>(count);
    std::vector<decimal> sums = std::vector<decimal>(count);
};

struct Answers
{
    std::vector<Text> texts = std::vector<Text>(count);
    int less = 0;
    std::vector<double> added;
    std::vector<double> rescaled;
};

std::vector<double> sumsOf(const DecimalPeer& peer)
{
    std::vector<double> sums;
    for (size_t i = 0; i < count; ++i)
        sums.push_back(peer.sum(i));
    return sums;
}

template <typename Work>
void measure(DecimalPeer& peer, const char* figure, Work work)
{
    double best = 1e9;
    for (int round = 0; round < 5; ++round)
        best = std::min(best, timed([&] {
                            for (int i = 0; i < repeats; ++i)
                                work();
                        }));
    report(peer.name(), "N1", figure, double(count) * repeats / best / 1e6, "M/s");
}

Answers measureDecimals(DecimalPeer& peer, const std::vector<Text>& texts)
{
    Answers answers;
    measure(peer, "parse", [&] { peer.parse(texts); });
    measure(peer, "format", [&] { peer.format(answers.texts); });
    measure(peer, "add", [&] { peer.add(); });
    answers.added = sumsOf(peer);
    measure(peer, "compare", [&] { answers.less = peer.compare(); });
    measure(peer, "rescale", [&] { peer.rescale(); });
    answers.rescaled = sumsOf(peer);
    return answers;
}

void decimals()
{
    Random random;
    std::vector<Text> texts(count);
    for (Text& text : texts) // five to eight digits, four of them behind the point
        text.length = std::snprintf(text.chars, sizeof(text.chars), "%d.%04d",
                                    random.below(9000) + 1, random.below(10000));
    Decimals ours;
    const Answers answers = measureDecimals(ours, texts);
    for (size_t i = 0; i < count; ++i)
        require(std::string(answers.texts[i].chars, static_cast<size_t>(answers.texts[i].length)) ==
                    std::string(texts[i].chars, static_cast<size_t>(texts[i].length)),
                ours.name(), "a number does not print as it was read");
    for (const auto& peer : decimalPeers(count)) {
        const Answers peers = measureDecimals(*peer, texts);
        require(peers.less == answers.less && peers.added == answers.added &&
                    peers.rescaled == answers.rescaled,
                peer->name(), "the answers differ");
    }
}

void checksums()
{
    Random random;
    std::vector<char> bytes(88000000);
    for (size_t i = 0; i + 8 <= bytes.size(); i += 8) {
        const quint64 word = random.next();
        std::memcpy(&bytes[i], &word, sizeof(word));
    }
    const auto measured = [&](const char* name, auto checksum) {
        double best = 1e9;
        quint64 result = 0;
        for (int i = 0; i < 5; ++i)
            best = std::min(best, timed([&] {
                                result =
                                    checksum(bytes.data(), static_cast<unsigned>(bytes.size()));
                            }));
        report(name, "N3", "checksum", static_cast<double>(bytes.size()) / best / 1e9, "GB/s");
        return result;
    };
    const quint64 ours = measured("livetable", qChecksum64);
    if (const Checksum peer = isalChecksum())
        require(measured("isa-l", peer) == ours, "isa-l", "the checksums differ");
}

} // namespace
} // namespace bench

int main(int argc, char** argv)
{
    const auto isWanted = [&](const char* name) {
        return argc < 2 || std::any_of(argv + 1, argv + argc, [&](const char* word) {
                   return std::strcmp(word, name) == 0;
               });
    };
    if (isWanted("N1"))
        bench::decimals();
    if (isWanted("N3"))
        bench::checksums();
    return 0;
}
