#pragma once

#include "checks/account.h"

/// What a check found: the code that was expected instead, or its own words. May be empty.
QString rowDetail(const ContractSpace::CheckRow& row);
