#include "ModelImage.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <sstream>
#include <vector>

namespace pal_engine {

namespace {

constexpr char kFirstLine[] = "voxa-model 1";

std::string trim(const std::string& text) {
    const char* blanks = " \t\r";
    size_t begin = text.find_first_not_of(blanks);
    if (begin == std::string::npos) {
        return "";
    }
    size_t end = text.find_last_not_of(blanks);
    return text.substr(begin, end - begin + 1);
}

// Appends `path` and what stat says of it that changes when the file is rewritten.
bool describe(const std::string& path, std::string* identity) {
    struct stat info;
    if (stat(path.c_str(), &info) != 0) {
        return false;
    }
    *identity += path + ' ' + std::to_string(info.st_dev) + ' ' + std::to_string(info.st_ino) +
                 ' ' + std::to_string(info.st_size) + ' ' + std::to_string(info.st_mtim.tv_sec) +
                 '.' + std::to_string(info.st_mtim.tv_nsec) + '\n';
    return true;
}

}  // namespace

std::string modelIdentity(const ModelImage& image) {
    std::string identity = image.language + '\n';
    std::vector<std::string> files = {image.languageModel, image.dictionary, image.acousticModel};
    DIR* directory = opendir(image.acousticModel.c_str());
    if (directory == nullptr) {
        return "";
    }
    while (const dirent* entry = readdir(directory)) {
        if (entry->d_name[0] != '.') {
            files.push_back(image.acousticModel + '/' + entry->d_name);
        }
    }
    closedir(directory);
    std::sort(files.begin() + 3, files.end());
    for (const std::string& file : files) {
        if (!describe(file, &identity)) {
            return "";
        }
    }
    return identity;
}

int32_t parseModelImage(const std::string& text, ModelImage* image) {
    std::map<std::string, std::string*> fields = {
            {"language", &image->language},
            {"acoustic-model", &image->acousticModel},
            {"language-model", &image->languageModel},
            {"dictionary", &image->dictionary},
    };
    std::map<std::string, std::string> seen;
    bool versionSeen = false;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        line = trim(line);
        if (line.empty() || line[0] == '#') {
            continue;
        }
        if (!versionSeen) {
            if (line != kFirstLine) {
                return PAL_STATUS_INVALID;
            }
            versionSeen = true;
            continue;
        }
        size_t blank = line.find_first_of(" \t");
        if (blank == std::string::npos) {
            return PAL_STATUS_INVALID;
        }
        std::string key = line.substr(0, blank);
        std::string value = trim(line.substr(blank));
        if (fields.count(key) == 0 || seen.count(key) != 0) {
            return PAL_STATUS_INVALID;
        }
        if (key != "language" && value[0] != '/') {
            return PAL_STATUS_INVALID;
        }
        seen[key] = value;
    }
    if (!versionSeen || seen.size() != fields.size()) {
        return PAL_STATUS_INVALID;
    }
    for (const auto& [key, value] : seen) {
        *fields[key] = value;
    }
    return 0;
}

int32_t readModelImage(int fd, int32_t size, ModelImage* image) {
    if (fd < 0 || size <= 0 || size > kMaxModelImageSize) {
        return PAL_STATUS_INVALID;
    }
    std::vector<char> bytes(size);
    bool seekable = lseek(fd, 0, SEEK_CUR) >= 0;
    size_t done = 0;
    while (done < bytes.size()) {
        ssize_t n = seekable ? pread(fd, bytes.data() + done, bytes.size() - done,
                                     static_cast<off_t>(done))
                             : read(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return PAL_STATUS_INVALID;
        }
        done += n;
    }
    return parseModelImage(std::string(bytes.begin(), bytes.end()), image);
}

}  // namespace pal_engine
