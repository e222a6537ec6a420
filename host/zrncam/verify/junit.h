#pragma once

#include "checks/account.h"

#include <QByteArray>

/// The rows as a JUnit report, which continuous-integration systems read. What the camera does not
/// support is a skipped test.
QByteArray junitReport(const ContractSpace::Account& account, const QString& serial);
