// With second_file.cpp: the header's functions may stand in several files of a program.

#include <dpdu.hpp>

std::size_t CountInstalled();

std::size_t CountInstalled() { return pdu::InstalledLibraries("nowhere.xml").size(); }
