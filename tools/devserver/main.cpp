// nymbrel-devserver: a local stand-in for the service's REST interface.
//
// Start-up: parse the command line, load users, open the database, bind the port, print the
// base URL (http://host:port/v1) as the first line of standard output, then serve until
// SIGTERM or SIGINT. Shut-down: stop accepting, cut short fault delays, end idle keep-alive
// connections, let the answers in progress go out, close the database, exit 0.
//
// Exit status (README.md promises it to scripts): 0 stopped by a signal, 1 the server failed
// while serving, 2 a bad command line, users file, fault rule or database, 3 the address
// cannot be listened on (the port is taken, the address is not this machine's).
#include "Connections.h"
#include "Faults.h"
#include "Routes.h"
#include "Store.h"
#include "Users.h"

#include <httplib.h>
#include <pthread.h>
#include <CLI/CLI.hpp>

#include <sys/socket.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace {

enum ExitCode : int {
  kExitStopped = 0,
  kExitServeFailed = 1,
  kExitUsage = 2,
  kExitCannotListen = 3
};

struct Options {
  std::string host = "127.0.0.1";
  int port = 8080;
  std::string database;
  std::vector<std::string> users;
  std::vector<std::string> usersFiles;
  std::vector<std::string> faults;
  unsigned threads = 16;
  bool log = false;
};

int serve(const Options& options, const sigset_t& stopSignals) {
  using namespace nyb::devserver;

  Users users;
  for (const auto& file : options.usersFiles) users.addFromFile(file);
  for (const auto& user : options.users) users.addArgument(user);
  if (users.empty()) {
    users.add(User{"demo-org", "demo-user", "demo-token"});
    std::fprintf(
        stderr,
        "nymbrel-devserver: no users given; serving demo-org/demo-user, token demo-token\n");
  }
  Faults faults;
  for (const auto& fault : options.faults) faults.add(parseFaultArgument(fault));
  Store store(options.database);

  httplib::Server server;
  // Without TCP_NODELAY a small answer written in two pieces waits ~40 ms for the client's
  // delayed ACK. Accepted sockets inherit the option from the listening one.
  server.set_tcp_nodelay(true);
  // The HTTP library's default also sets SO_REUSEPORT, with which a second server binds a
  // port that one is already listening on and the kernel splits the connections between
  // them. SO_REUSEADDR alone still lets a restart take a port whose old connections linger.
  server.set_socket_options([](int sock) {
    int yes = 1;
    setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  });
  server.set_keep_alive_max_count(1000000);
  server.set_payload_max_length(256 * 1024 * 1024);
  unsigned threads = options.threads;
  server.new_task_queue = [threads] { return new httplib::ThreadPool(threads); };
  if (options.log) {
    server.set_logger([](const httplib::Request& request, const httplib::Response& response) {
      std::fprintf(stderr, "%s %s %d\n", request.method.c_str(), request.target.c_str(),
                   response.status);
    });
  }

  errno = 0;
  int port = options.port == 0
                 ? server.bind_to_any_port(options.host)
                 : (server.bind_to_port(options.host, options.port) ? options.port : -1);
  if (port <= 0) {
    int error = errno;  // the failed bind's, when the library's clean-up left it alone
    std::string why = error == EADDRINUSE ? "the port is already in use"
                      : error != 0        ? std::strerror(error)
                                          : "the address cannot be used";
    std::fprintf(stderr, "nymbrel-devserver: cannot listen on %s port %d: %s\n",
                 options.host.c_str(), options.port, why.c_str());
    return kExitCannotListen;
  }
  bool ipv6 = options.host.find(':') != std::string::npos;
  std::string baseURL = "http://" + (ipv6 ? "[" + options.host + "]" : options.host) + ":" +
                        std::to_string(port) + "/v1";
  Routes routes(store, users, faults, baseURL);
  routes.install(server);

  std::atomic<bool> finished{false};
  std::thread stopper([&] {
    int signal = 0;
    sigwait(&stopSignals, &signal);
    if (finished) return;
    faults.stop();
    // stop() only acts on a running server; the signal may come before listening begins.
    while (!server.is_running() && !finished) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    server.stop();
    endIdleConnections(port);
  });

  std::printf("%s\n", baseURL.c_str());
  std::fflush(stdout);
  bool listened = server.listen_after_bind();
  finished = true;
  pthread_kill(stopper.native_handle(), SIGTERM);  // wakes the stopper if no signal came
  stopper.join();
  return listened ? kExitStopped : kExitServeFailed;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app{"nymbrel-devserver: a local stand-in for the service's REST interface"};
  app.add_option("--host", options.host, "Address to listen on")->capture_default_str();
  app.add_option("--port", options.port, "TCP port; 0 picks a free one")
      ->check(CLI::Range(0, 65535))
      ->capture_default_str();
  app.add_option("--db", options.database,
                 "SQLite database file, kept across restarts (default: in memory)");
  app.add_option("--user", options.users, "A user as ORG:USER:TOKEN (repeatable)");
  app.add_option("--users", options.usersFiles, "A JSON users file (repeatable)")
      ->check(CLI::ExistingFile);
  app.add_option("--fault", options.faults,
                 "A fault rule such as status=503,count=2 or close,fraction=0.1,seed=7 "
                 "(repeatable; see README.md)");
  app.add_option("--threads", options.threads, "Worker threads")
      ->check(CLI::Range(1, 1024))
      ->capture_default_str();
  app.add_flag("--log", options.log, "Log one line per request on standard error");
  app.set_version_flag("--version", "nymbrel-devserver " NYB_VERSION);
  app.footer(
      "Exit status: 0 stopped by SIGTERM or SIGINT; 1 failed while serving; 2 bad command line,\n"
      "users file, fault rule or database; 3 cannot listen (port in use, address not local).");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    // Help and version are "errors" with status 0; every real one is a usage error.
    int status = app.exit(error);
    return status == 0 ? kExitStopped : kExitUsage;
  }

  // Block the stop signals in every thread (all are created later) so that one thread
  // takes them with sigwait, where it may safely stop the server.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
  // A client that hangs up must not kill the server while it writes the answer.
  std::signal(SIGPIPE, SIG_IGN);

  try {
    return serve(options, stopSignals);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "nymbrel-devserver: %s\n", e.what());
    return kExitUsage;
  }
}
