#pragma once

#include "tests/support/program.h"

#include "keel/document/ado.h"

#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>

namespace keel::test {

// A PostgreSQL server of the test program's own: a cluster made by initdb in a temporary folder,
// listening on a Unix socket in that folder only (no TCP), with a database "keeltest" that the
// user "keel" reaches without a password. It is started on first use and stopped (immediately,
// nothing to keep) with its folder removed when the program ends. initdb refuses to run as root,
// so a root test runs the server's programs as the user nobody.
class PostgresServer {
public:
    static constexpr const char* c_database = "keeltest";
    static constexpr const char* c_user = "keel";

    static PostgresServer& Shared() {
        static PostgresServer server;
        return server;
    }

    // Why no server runs; empty when one does.
    const std::string& Unavailable() const { return m_unavailable; }
    const std::string& Folder() const { return m_folder; }
    std::string Uri(const std::string& database = c_database) const {
        return "postgresql:///" + database + "?host=" + m_folder + "&user=" + c_user;
    }

    bool Stop() { return Server("stop -m immediate"); }
    bool Start() {
        return Server("start -w -t 30 -l " + ShellQuoted(m_folder + "/server.log") +
                      " -o \"-c listen_addresses='' -c unix_socket_directories='" + m_folder +
                      "' -c fsync=off -c full_page_writes=off\"");
    }

    // The rows of a query as psql gives them, unaligned: "|" between fields, a line a record;
    // the oracle of what a connection wrote. `sql` is run as it stands.
    std::string Psql(const std::string& sql) const {
        return Piped(ShellQuoted(m_bin + "/psql") + " -X -q -At -v ON_ERROR_STOP=1 -h " +
                     ShellQuoted(m_folder) + " -U " + c_user + " -d " + c_database + " -c " +
                     ShellQuoted(sql) + " 2>&1")
            .out;
    }

    ~PostgresServer() {
        if (m_running)
            Stop();
        if (!m_folder.empty()) {
            std::error_code ignored;
            std::filesystem::remove_all(m_folder, ignored);
        }
    }
    PostgresServer(const PostgresServer&) = delete;
    PostgresServer& operator=(const PostgresServer&) = delete;

private:
    PostgresServer() {
        m_bin = NewestBinFolder();
        if (m_bin.empty()) {
            m_unavailable = "no PostgreSQL server programs in /usr/lib/postgresql/*/bin";
            return;
        }
        std::string pattern = (std::filesystem::temp_directory_path() / "keel-pg-XXXXXX");
        if (!mkdtemp(pattern.data())) {
            m_unavailable = "cannot make a folder for the server";
            return;
        }
        m_folder = pattern;
        if (::geteuid() == 0 && ::chown(m_folder.c_str(), c_nobody, c_nobody) != 0) {
            m_unavailable = "cannot give the server's folder to the user nobody";
            return;
        }
        if (!AsServerUser(ShellQuoted(m_bin + "/initdb") + " -D " +
                          ShellQuoted(m_folder + "/data") + " -A trust -U " + c_user +
                          " -E UTF8 --locale=C --no-sync")) {
            m_unavailable = "initdb failed";
            return;
        }
        m_running = Start();
        if (!m_running) {
            m_unavailable = "the server did not start; see " + m_folder + "/server.log";
            return;
        }
        if (std::system((ShellQuoted(m_bin + "/createdb") + " -h " + ShellQuoted(m_folder) +
                         " -U " + c_user + " " + c_database + " >/dev/null 2>&1")
                            .c_str()) != 0)
            m_unavailable = "createdb failed";
    }

    static constexpr uid_t c_nobody = 65534;

    // The bin folder of the newest version that has the server's programs.
    static std::string NewestBinFolder() {
        std::string newest =
            Piped("for bin in /usr/lib/postgresql/*/bin; do test -x \"$bin/pg_ctl\" && "
                  "test -x \"$bin/initdb\" && echo \"$bin\"; done | sort -V | tail -n 1")
                .out;
        if (!newest.empty() && newest.back() == '\n')
            newest.pop_back();
        return newest;
    }

    // Runs a server program, as nobody when the test is root: through setpriv, which needs no
    // login session (runuser asks PAM for one, which a container may refuse), else runuser.
    static bool AsServerUser(const std::string& command) {
        std::string prefix;
        if (::geteuid() == 0)
            prefix = std::system("command -v setpriv >/dev/null 2>&1") == 0
                         ? "setpriv --reuid=65534 --regid=65534 --clear-groups "
                         : "runuser -u nobody -- ";
        return std::system((prefix + command + " >/dev/null 2>&1").c_str()) == 0;
    }

    bool Server(const std::string& action) {
        return AsServerUser(ShellQuoted(m_bin + "/pg_ctl") + " -D " +
                            ShellQuoted(m_folder + "/data") + " " + action);
    }

    std::string m_bin;
    std::string m_folder;
    std::string m_unavailable;
    bool m_running = false;
};

// Why the tests cannot use the shared server; empty when they can, and then its database has
// an empty schema.
inline std::string PostgresUnavailable() {
    if (!HasPostgresBackend())
        return BuiltWithout(u"PostgreSQL (libpq)").ToUtf8();
    PostgresServer& server = PostgresServer::Shared();
    if (!server.Unavailable().empty())
        return "no PostgreSQL server for these tests: " + server.Unavailable();
    const std::string reset = server.Psql(
        "SET client_min_messages = warning; DROP SCHEMA public CASCADE; CREATE SCHEMA public");
    return reset.empty() ? std::string() : "the test database cannot be emptied: " + reset;
}

} // namespace keel::test
