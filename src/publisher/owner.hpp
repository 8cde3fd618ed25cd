#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>

namespace tarnwick::publisher {

/// The name of a user, or the number where there is none.
std::string userName(uid_t user);

/// The name of the user whose rights this process has.
std::string ownName();

/// Who may carry out a command.
enum class Access {
  owner,   ///< the owner of the home, and root as the owner
  reader,  ///< besides, everybody who may read it
};

/// Called once by every command, before anything in the home is opened. Root steps down to the
/// owner of the home: in a new session, so that no program that the owner configures can type into
/// root's terminal. The process that root started only waits for the one that works, and ends with
/// its status. Refuses where another user could have exchanged the home.
///
/// Where there is no such folder, root becomes the one who could make it, as below.
void stepDownToOwner(const std::filesystem::path& home, Access access);

/// The same for a home that is yet to be made: its owner is that of the last folder on the way to
/// it that is there, or of a link on the way that is not root's.
void stepDownToMaker(const std::filesystem::path& home);

}  // namespace tarnwick::publisher
