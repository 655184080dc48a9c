// SPDX-License-Identifier: MIT
// The contenders of bench_numbers.
#pragma once

#include <QtGlobal>

#include <memory>
#include <vector>

namespace bench {

struct Text
{
    char chars[96];
    int length;
};

/// An array of decimals of which each function works on all.
class DecimalPeer
{
public:
    DecimalPeer() = default;
    virtual ~DecimalPeer() = default;
    DecimalPeer(const DecimalPeer&) = delete;
    DecimalPeer& operator=(const DecimalPeer&) = delete;

    virtual const char* name() const = 0;
    virtual void parse(const std::vector<Text>& texts) = 0;
    virtual void format(std::vector<Text>& texts) = 0;
    /// Each number and the one as far from the other end.
    virtual void add() = 0;
    /// How many are less than the one as far from the other end.
    virtual int compare() = 0;
    /// To two digits, half away from zero.
    virtual void rescale() = 0;
    /// What add() or rescale() made of the i-th.
    virtual double sum(size_t i) const = 0;
};

/// Those that were found.
std::vector<std::unique_ptr<DecimalPeer>> decimalPeers(size_t count);

using Checksum = quint64 (*)(const char* bytes, unsigned length);
/// Null where ISA-L was not found.
Checksum isalChecksum();

} // namespace bench
