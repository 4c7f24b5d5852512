#include "ConfigFindings.h"

#include <unistd.h>

#include <filesystem>
#include <sstream>
#include <system_error>

#include "ConfigReader.h"

namespace kvhost {

namespace {

namespace fs = std::filesystem;

bool IsWritable(const fs::path& path) {
    return ::access(path.c_str(), W_OK) == 0;
}

/// The folder itself, or the nearest one above it that exists.
fs::path NearestFolder(fs::path folder) {
    std::error_code error;
    folder = fs::absolute(folder, error).lexically_normal();
    while (!fs::exists(folder, error) && folder.has_parent_path() && folder != folder.parent_path()) {
        folder = folder.parent_path();
    }
    return folder;
}

void CheckFolder(const std::string& folder, ConfigFindings& findings) {
    const fs::path nearest = NearestFolder(folder);
    if (!fs::is_directory(nearest)) {
        findings.faults.push_back("store: " + nearest.string() + " is no folder; name another one");
    } else if (!IsWritable(nearest)) {
        findings.faults.push_back("store: " + folder + " cannot be " +
                                  (nearest == fs::path(folder) ? "written" : "made") +
                                  ": this user may not write to " + nearest.string() +
                                  "; give it the right to, or run the check as the host's user");
    }
}

void CheckLogFile(const std::string& field, const std::string& file, ConfigFindings& findings) {
    if (file.empty()) {
        return;
    }
    std::error_code error;
    const fs::path folder = fs::absolute(file, error).parent_path();
    if (!fs::is_directory(folder)) {
        findings.faults.push_back(field + ": the folder " + folder.string() + " does not exist; make it");
    } else if (fs::is_directory(file, error)) {
        findings.faults.push_back(field + ": " + file + " is a folder; name a file");
    } else if (!IsWritable(folder) || (fs::exists(file, error) && !IsWritable(file))) {
        findings.faults.push_back(field + ": this user may not write " + file +
                                  "; give it the right to, or run the check as the host's user");
    }
}

void Read(ConfigFindings& findings) {
    try {
        findings.config = ReadConfig(findings.file);
        findings.isRead = true;
        for (const Problem& problem : findings.config.problems) {
            findings.faults.push_back(Describe(problem));
        }
    } catch (const BadInput& error) {
        std::istringstream lines(error.what());
        for (std::string line; std::getline(lines, line);) {
            findings.faults.push_back(line);
        }
    }
}

void NoteWhatIsMissing(ConfigFindings& findings) {
    if (findings.config.store.empty()) {
        findings.notes.push_back("no store: every command but send needs one");
    }
    if (findings.config.carriers.empty()) {
        findings.notes.push_back("no usable carrier: nothing can be sent");
    }
    if (findings.config.carriers.size() > 1 &&
        findings.config.driverSettings.count("smart_driver.threadpool_size") == 0) {
        findings.notes.push_back(
            "driver.threadpool_size is not set: the driver may have a single worker, and a slow carrier "
            "holds up the others then; four is sensible");
    }
}

}  // namespace

ConfigFindings CheckConfig(const std::string& file, const std::string& store) {
    ConfigFindings findings;
    findings.file = file;
    Read(findings);
    if (!findings.isRead) {
        return findings;
    }
    if (!store.empty()) {
        findings.config.store = store;
    }
    if (!findings.config.store.empty()) {
        CheckFolder(findings.config.store, findings);
    }
    CheckLogFile("log.file", findings.config.logFile, findings);
    CheckLogFile("delivery_log.file", findings.config.deliveryLog.path, findings);
    NoteWhatIsMissing(findings);
    return findings;
}

}  // namespace kvhost
