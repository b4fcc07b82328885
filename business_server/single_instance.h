// One daemon a device: two would act on the same lamp and lines.
#pragma once

namespace businessserver {

// Claims the device for this process. False when another process of this user has: it holds a name that each network
// namespace has of its own, so a device in a namespace has its daemon, and that goes with its holder however that ends.
bool ClaimDevice();

}  // namespace businessserver
