#include "ncds/foundations/Exception.h"

#include <utility>

Exception::Exception(ExceptionMessage message)
    : mMessages(std::move(message)), mWhat(mMessages.str()) {}

Exception::Exception(ExceptionMessageList messages)
    : mMessages(std::move(messages)), mWhat(mMessages.str()) {}

Exception::~Exception() = default;

NCError::NCError(ExceptionMessage message, Level level)
    : Exception(std::move(message)), mLevel(level) {}

NCError::NCError(ExceptionMessageList messages, Level level)
    : Exception(std::move(messages)), mLevel(level) {}

NCError::~NCError() = default;

NCInternalError::NCInternalError(const std::string& what)
    : Exception(ExceptionMessage::Verbatim(what)) {}

NCInternalError::~NCInternalError() = default;

InvalidArgument::InvalidArgument(const std::string& what)
    : Exception(ExceptionMessage::Verbatim(what)) {}

InvalidArgument::InvalidArgument(ExceptionMessage message) : Exception(std::move(message)) {}

InvalidArgument::~InvalidArgument() = default;

VxStreamError::VxStreamError(ExceptionMessage message) : Exception(std::move(message)) {}

VxStreamError::~VxStreamError() = default;
