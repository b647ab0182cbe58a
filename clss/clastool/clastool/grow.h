#pragma once

/// Reserves one more element in each of several parallel vectors, so that appending to all of them cannot fail half way. Grows
/// geometrically, as push_back does.
template <class... Vectors>
void kt_makeRoomForOne(Vectors&... vectors)
{
    (..., (vectors.size() == vectors.capacity() ? vectors.reserve(2 * vectors.size() + 4) : void()));
}
