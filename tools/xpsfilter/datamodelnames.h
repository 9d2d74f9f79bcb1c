// datamodelnames.h: the symbolic names of the driver data model's feature and value ids
// (support/utilities/datamodelids.h), for descriptions that show a name beside each number.
#pragma once

#include <string>

namespace xpsfilter {

// "NUpPagesPerSheet" for 215; "" for an id the data model does not name.
std::string FeatureName(long featureId);
// "NUp4" for 7242; page sizes by their PageMediaSize option name ("ISOA4"), read from the core
// library's page size dictionary; "" for a value without a name (a watermark's number, say).
std::string ValueName(long valueId);

}  // namespace xpsfilter
