// tavrel: the command-line companion of tavrel_sdk (launch URLs, watermark engine, event file
// inspector, simulated sessions, mock service).

#include "commands.hpp"

#include <tavrel_sdk/tavrel_sdk.hpp>

#include <iostream>

int main(int argc, char** argv) {
  CLI::App app{"tavrel: tools for integrating and testing tavrel_sdk", "tavrel"};
  app.set_version_flag("--version", "tavrel 1.0.0");
  app.require_subcommand(1);

  int exitStatus = 0;
  tavrel::cli::addLaunchUrlCommands(app, exitStatus);
  tavrel::cli::addWatermarkCommand(app, exitStatus);
  tavrel::cli::addInspectCommand(app, exitStatus);
  tavrel::cli::addPlotCommand(app, exitStatus);
  tavrel::cli::addDemoCommand(app, exitStatus);
  tavrel::cli::addRunCommand(app, exitStatus);
  tavrel::cli::addServeCommand(app, exitStatus);
  tavrel::cli::addRenderCommand(app, exitStatus);
  tavrel::cli::addDoctorCommand(app, exitStatus);

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e);
  } catch (const CLI::CallForVersion& e) {
    return app.exit(e);
  } catch (const CLI::ParseError& e) {
    std::cerr << "tavrel: " << e.what() << "\n";
    return 2;
  } catch (const tavrel::cli::UsageError& e) {
    std::cerr << "tavrel: " << e.what() << "\n";
    return 2;
  }
  return exitStatus;
}
