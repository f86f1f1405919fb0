// idpi_sig.h - Signals of the inter-unit link port server.
#pragma once
#include "ose/types.h"

constexpr SIGSELECT IDPI_GET_DELAY_CFM = 0x1019317;   // server -> client
