// SPDX-License-Identifier: MIT
#include "numbers.h"

#include <cstring>

#ifdef HAVE_INTELDECIMAL
#define DECIMAL_CALL_BY_REFERENCE 0
#define DECIMAL_GLOBAL_ROUNDING 0
#define DECIMAL_GLOBAL_EXCEPTION_FLAGS 0
#include <bid_conf.h>
// The other header needs the first.
#include <bid_functions.h>
#endif
#ifdef HAVE_ISAL
#include <isa-l/crc64.h>
#endif

namespace bench {

#ifdef HAVE_INTELDECIMAL
namespace {

class IntelDecimals : public DecimalPeer
{
public:
    explicit IntelDecimals(size_t n)
        : values(n)
        , sums(n)
        , twoDigits(bid64_from_string(text, rounding, &flags))
    {}
    const char* name() const override { return "intel-decimal64"; }
    void parse(const std::vector<Text>& texts) override
    {
        for (size_t i = 0; i < values.size(); ++i)
            values[i] = bid64_from_string(const_cast<char*>(texts[i].chars), rounding, &flags);
    }
    void format(std::vector<Text>& texts) override
    {
        for (size_t i = 0; i < values.size(); ++i)
            bid64_to_string(texts[i].chars, values[i], &flags);
    }
    void add() override
    {
        for (size_t i = 0; i < values.size(); ++i)
            sums[i] = bid64_add(values[i], values[values.size() - 1 - i], rounding, &flags);
    }
    int compare() override
    {
        int less = 0;
        for (size_t i = 0; i < values.size(); ++i)
            less += bid64_quiet_less(values[i], values[values.size() - 1 - i], &flags);
        return less;
    }
    void rescale() override
    {
        for (size_t i = 0; i < values.size(); ++i)
            sums[i] = bid64_quantize(values[i], twoDigits, rounding, &flags);
    }
    double sum(size_t i) const override
    {
        _IDEC_flags ignored = 0;
        return bid64_to_binary64(sums[i], BID_ROUNDING_TO_NEAREST, &ignored);
    }

private:
    static constexpr _IDEC_round rounding = BID_ROUNDING_TIES_AWAY;
    char text[5] = "0.00";
    _IDEC_flags flags = 0;
    std::vector<BID_UINT64> values;
    std::vector<BID_UINT64> sums;
    BID_UINT64 twoDigits;
};

} // namespace
#endif

std::vector<std::unique_ptr<DecimalPeer>> decimalPeers(size_t count)
{
    std::vector<std::unique_ptr<DecimalPeer>> peers;
#ifdef HAVE_INTELDECIMAL
    peers.push_back(std::make_unique<IntelDecimals>(count));
#else
    Q_UNUSED(count)
#endif
    return peers;
}

Checksum isalChecksum()
{
#ifdef HAVE_ISAL
    return [](const char* bytes, unsigned length) -> quint64 {
        return crc64_ecma_norm(0, reinterpret_cast<const unsigned char*>(bytes), length);
    };
#else
    return nullptr;
#endif
}

} // namespace bench
