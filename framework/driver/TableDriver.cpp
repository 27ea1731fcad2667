#include "framework/driver/TableDriver.h"

namespace BfnDriver {

TableDriver::~TableDriver() = default;

void TableDriver::prefetch(TableHandle, ByteView) const {}

}  // namespace BfnDriver
