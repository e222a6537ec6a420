#pragma once

#include "arguments.h"
#include "common/interrupt.h"
#include "exit_codes.h"
#include "output.h"

#include <functional>
#include <string>
#include <vector>

/// Options that every command knows.
struct GlobalOptions {
    bool json = false;
    bool verbose = false;
    bool quiet = false;
    std::string plugin;
    std::vector<std::string> serials;
    std::string port;
    int index = -1; ///< -1: not given
    bool all = false;

    /// Whether the command is to work on several cameras at once.
    [[nodiscard]] bool areSeveral() const { return all || serials.size() > 1; }
    std::vector<std::string> virtualModels;
};

/// What a command works with.
struct Context {
    const GlobalOptions& options;
    Report& report;
    zrnhost::Interrupt& interrupt;
    std::FILE* standardOutput; ///< where the command's file or frames go to it; null otherwise
    QString name = {};         ///< of the camera, where it is one of several; empty otherwise
};

/// A subcommand: its part of the command line, and what it does.
struct Command {
    CLI::App* app;
    std::function<ExitCode(Context&)> run;
    bool takesSeveral = false; ///< cameras at once
    /// Where its file or its frames go, if it has an option for that: to standard output if it is
    /// "-" or that one's name, and the report to standard error.
    std::function<std::string()> output = {};
    bool takesTriggers = false; ///< SIGUSR1 is one, and does not end it
};

Command addList(CLI::App& app);
Command addInfo(CLI::App& app);
Command addExposure(CLI::App& app);
Command addGain(CLI::App& app);
Command addGrab(CLI::App& app);
Command addStream(CLI::App& app);
Command addRecord(CLI::App& app);
Command addGet(CLI::App& app);
Command addSet(CLI::App& app);
Command addProperties(CLI::App& app);
Command addSettings(CLI::App& app);
Command addDriverCommand(CLI::App& app);
Command addDoctor(CLI::App& app);
Command addVerify(CLI::App& app);
