#pragma once

#include <QString>

#include <cstdint>
#include <vector>

// Version arithmetic for release checks. Parsing never fails: anything unreadable becomes 0 or an
// empty list, so a malformed manifest can at worst make an update look not newer.
namespace Semver {

// The numeric components of a version: blanks trimmed, leading v/V dropped, split at "." with empty
// pieces skipped; each piece contributes the value of its leading number (0 when there is none, when
// it is not plain ASCII digits, or when it overflows 64 bits). Suffixes such as "-beta" are ignored.
std::vector<std::int64_t> parse(const QString& version);

// Whether `candidate` is strictly newer than `reference`; missing trailing components count as 0.
bool isNewer(const QString& candidate, const QString& reference);

} // namespace Semver
