// Exceptions raised by the XML document layer. Parse errors are not among them:
// a load keeps its parse error as a value and returns false.
#pragma once

#include <stdexcept>
#include <string>

namespace tmi::xml {

// Base of everything the document layer raises.
class EOXmlException : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// An index outside a list.
class EListError : public EOXmlException {
public:
    EListError() : EOXmlException("List index out of range.") {}
    using EOXmlException::EOXmlException;
};

// Structural misuse of a document.
class EXMLDOMException : public EOXmlException {
public:
    using EOXmlException::EOXmlException;
};

class EXmlXPathException : public EOXmlException {
public:
    using EOXmlException::EOXmlException;
};

// A selection path that cannot be understood.
class EXmlXPathInvalidString : public EXmlXPathException {
public:
    using EXmlXPathException::EXmlXPathException;
};

// Raised out of a load when the reader's error handling is `ehRaise`.
class EXmlReaderError : public EOXmlException {
public:
    using EOXmlException::EOXmlException;
};

}  // namespace tmi::xml
