#pragma once

#include <string>

#include "publisher/home.hpp"
#include "publisher/json.hpp"
#include "publisher/workplace.hpp"

/// What happened in a home: kept in publishing.log, a JSON object on each line, and handed to the
/// vendor's hooks.
namespace tarnwick::publisher {

/// Keeps an event with its time and who caused it. A failure is told and changes nothing else: what
/// happened has happened.
void noteEvent(const Home& home, const std::string& what, const Json::Object& facts);

/// Calls every executable in hooks/ of the home with the name of the event, and the event as JSON
/// on its standard input. A hook that fails is told.
void callHooks(const Home& home, const Workplace& work, const std::string& what,
               const Json::Object& facts);

/// `log`: prints what happened, the oldest first.
void printLog(const std::string& homePath, bool json);

}  // namespace tarnwick::publisher
