// How the transfer library asks for a flow's data and brings it.
#pragma once

#include <curl/curl.h>

#include <cstddef>

namespace TAVOCloud {

// For CURLOPT_WRITEFUNCTION: drops what comes.
std::size_t DropData(char* data, std::size_t one, std::size_t length, void* user);

// For CURLOPT_READFUNCTION, CURLOPT_SEEKFUNCTION and CURLOPT_XFERINFOFUNCTION, with a
// Flow as their pointer.
std::size_t GiveData(char* buffer, std::size_t one, std::size_t count, void* flow);
int SeekData(void* flow, curl_off_t offset, int origin);
int AskForStop(void* flow, curl_off_t, curl_off_t, curl_off_t, curl_off_t);

}  // namespace TAVOCloud
