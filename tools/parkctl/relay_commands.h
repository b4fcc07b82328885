// "parkctl relay": which site this device belongs to.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace parkctl {

// What the relay of this device goes by, and whether its hub can be reached from here.
int ShowRelay(uint16_t store_port);

// members: "site=garage", "broker=mqtts://hub.example", ...; the others stay. An empty value takes a member away.
int SetRelay(uint16_t store_port, uint16_t bus_port, const std::vector<std::string>& members, bool force = false);

int LeaveSite(uint16_t store_port, uint16_t bus_port);

}  // namespace parkctl
