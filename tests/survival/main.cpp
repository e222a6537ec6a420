#include "hosts_libraries.h"
#include "serious_lines.h"

#include <QCoreApplication>
#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    const QCoreApplication application(argc, argv);
    survival::loadHostsLibraries();
    survival::judgeLogs();
    return RUN_ALL_TESTS();
}
