#include "framework/driver/TableDriver.h"

namespace BfnDriver {

TableDriver::~TableDriver() = default;

}  // namespace BfnDriver
