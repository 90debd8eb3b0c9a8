// Today's kernels keep the devices text in debugfs and the usbfs nodes under
// /dev/bus/usb; the component reads both under /proc/bus/usb. This puts them
// there, in a mount namespace of this process alone, so that nothing outside
// the program sees a change.
#pragma once

#include <string>
#include <vector>

namespace host {

// Enters a private mount namespace and binds `devicesSource` at
// /proc/bus/usb/devices and each bus folder of `usbfsSource` at
// /proc/bus/usb/BBB. On failure returns false with the reason in `error`;
// `notes` tells what was done, and what is missing but not fatal.
bool EnterKernelPaths(const std::string& devicesSource, const std::string& usbfsSource, std::vector<std::string>& notes,
                      std::string& error);

}  // namespace host
