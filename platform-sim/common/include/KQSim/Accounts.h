#pragma once
// User accounts inside a container's file tree (etc/passwd, etc/shadow,
// etc/group), with passwords hashed by crypt(3) as SHA-512.
// Failure: 0 or -1 with the framework's error message.
#include <string>

namespace KQSim {

// A new tree's accounts: root (password "secret") and daemon.
int writeAccounts(const std::string& fileTree);

// Sets user's password; a user that does not exist yet is added (with the
// next free uid and a group of its own).
int setPassword(const std::string& fileTree, const std::string& user, const std::string& password);

// 0 when the password matches, 1 when it does not (or the user has none),
// -1 when the files cannot be read or the user is unknown.
int checkPassword(const std::string& fileTree, const std::string& user, const std::string& password);

// Whether user belongs to group gid: as primary group (passwd) or as a
// member listed in etc/group.
bool isInGroup(const std::string& fileTree, const std::string& user, int gid);

} // namespace KQSim
