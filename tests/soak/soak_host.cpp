// Runs cameras, faults and hosts at random for a while, under zrnsim, and accounts for every frame.

#include "client/driver_plugin.h"
#include "soak_round.h"

#include <CLI/CLI.hpp>
#include <QCoreApplication>

#include <iomanip>
#include <iostream>
#include <random>

namespace
{

void printCounts(const std::map<std::string, std::uint64_t>& counts)
{
    for (const auto& [name, count] : counts) {
        std::cout << "  " << std::left << std::setw(48) << name << std::right << std::setw(10)
                  << count << '\n';
    }
}

/// @return whether every frame that was sent has one outcome, and none is unexplained.
bool printAccount(const soak::Account& account)
{
    std::cout << "rounds " << account.rounds << ", streams started " << account.starts << " ("
              << account.restarts << " restarts)\n\nfaults caused\n";
    printCounts(account.faults);
    std::cout << "\nframes sent by the virtual cameras" << std::setw(26) << account.sent << '\n';
    printCounts(account.outcomes);
    std::uint64_t settled = 0;
    bool isExplained = true;
    for (const auto& [outcome, count] : account.outcomes) {
        settled += count;
        isExplained = isExplained && !outcome.starts_with("unexplained");
    }
    const bool balances = isExplained && settled == account.sent && settled > 0;
    std::cout << (balances ? "  the account balances\n" : "  THE ACCOUNT DOES NOT BALANCE\n");
    return balances;
}

} // namespace

int main(int argc, char** argv)
{
    CLI::App arguments("Soaks the driver in cameras, faults and hosts. Runs under zrnsim.");
    double hours = 0;
    unsigned seed = std::random_device()();
    std::size_t cameras = 1;
    arguments.add_option("--hours", hours, "How long, fractions allowed")->required();
    arguments.add_option("--seed", seed, "Of everything that is drawn at random");
    arguments.add_option("--cameras", cameras, "How many virtual cameras there are");
    CLI11_PARSE(arguments, argc, argv);
    const QCoreApplication application(argc, argv);
    std::cout << "seed " << seed << std::endl;

    try {
        zrn::DriverPlugin driver(ZRN_PLUGIN);
        soak::OperationLog log;
        soak::UsageTrend usage;
        soak::Soak soak(driver.factory(), log, usage, cameras, seed);
        const soak::Seconds end = soak::now() + hours * 3600;
        while (soak::now() < end) {
            soak.runRound();
        }
        const bool balances = printAccount(soak.account());
        std::cout << "\nheld by the process, with the cameras enumerated and none connected\n";
        const bool isFlat = usage.print(std::cout);
        std::cout << "\noperations, slowest first\n";
        log.print(std::cout);
        return balances && isFlat ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const std::exception& error) {
        std::cerr << "soak: " << error.what() << std::endl;
        return EXIT_FAILURE;
    }
}
