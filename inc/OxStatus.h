#pragma once

/**
 * @file
 * The status codes.
 *
 * Every operation that can fail and changes state returns one of these as an `int`, always after
 * logging the reason at error priority. The numbers are part of the interface.
 */

namespace oxil {

/** The operation did what it was asked for. */
inline constexpr int STATUS_SUCCESS = 0;

/** A raw copy or an index of a buffer getter failed (`Variant::toRaw`, `SerializedData` getters), or
 *  the connection of a `Channel`. */
inline constexpr int STATUS_FAILURE = -1;

/** Memory ran out. */
inline constexpr int STATUS_OUT_OF_MEMORY = -12;

/** An argument can't be used: empty key, null pointer, index out of range, wrong block layout. */
inline constexpr int STATUS_INVALID_PARAMETER = -22;

/** Nothing has come in the time that was given (`Channel`). */
inline constexpr int STATUS_TIMED_OUT = -110;

/** The object is not in a state to do this, or the engine underneath refused. */
inline constexpr int STATUS_INVALID_STATE = -524271;

/** What should be taken out is not there. */
inline constexpr int STATUS_NOT_FOUND = -524270;

/** The key is already in the record. */
inline constexpr int STATUS_ALREADY_EXISTS = -524269;

/** The type list of a block is full, or a message takes more than its limits allow. */
inline constexpr int STATUS_CAPACITY_EXCEEDED = -524268;

}  // namespace oxil
