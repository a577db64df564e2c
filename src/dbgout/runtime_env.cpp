#include "dbgout/runtime_env.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>

#include <sys/stat.h>

const std::string &runtime_dir() {
    static const std::string dir = [] {
        const char *env = getenv("FACEDET_RUNTIME_DIR");
        return std::string(env && *env ? env : "/dev");
    }();
    return dir;
}

std::string runtime_path(const char *name) {
    return runtime_dir() + "/" + name;
}

bool parse_shm_key(const char *text, key_t *key) {
    // strtoll would also skip leading blanks; a key is digits from the first byte.
    if (text == nullptr || !(isdigit(static_cast<unsigned char>(*text)) || *text == '-')) {
        return false;
    }
    errno = 0;
    char *end = nullptr;
    long long value = strtoll(text, &end, 0);
    // Base 0 would also take octal; a leading 0 means decimal here.
    if (text[0] == '0' && text[1] != 'x' && text[1] != 'X' && text[1] != '\0') {
        value = strtoll(text, &end, 10);
    }
    if (errno != 0 || end == text || *end != '\0' || value < INT_MIN || value > UINT_MAX) {
        return false;
    }
    *key = static_cast<key_t>(static_cast<unsigned int>(value));
    return true;
}

key_t shm_key() {
    static const key_t key = [] {
        key_t parsed = kDefaultShmKey;
        const char *env = getenv("FACEDET_SHM_KEY");
        if (env && *env) {
            parse_shm_key(env, &parsed);
        }
        return parsed;
    }();
    return key;
}

bool runtime_env_valid() {
    const char *key = getenv("FACEDET_SHM_KEY");
    key_t parsed;
    if (key && *key && !parse_shm_key(key, &parsed)) {
        fprintf(stderr, "faceDet: FACEDET_SHM_KEY='%s' is not a key (decimal or 0x-hex)\n", key);
        return false;
    }
    const char *dir = getenv("FACEDET_RUNTIME_DIR");
    struct stat st;
    if (dir && *dir && (stat(dir, &st) != 0 || !S_ISDIR(st.st_mode))) {
        fprintf(stderr, "faceDet: FACEDET_RUNTIME_DIR='%s' is not a directory\n", dir);
        return false;
    }
    return true;
}
