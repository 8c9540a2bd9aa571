#pragma once

#include <Orvel/Hull.h>
#include <Orvel/Quaternion.h>
#include <Orvel/Vec3f.h>

#include <string>

namespace Orvel::detail {

/// The calls by which every OpenAL back end gives AL the scene. They act on the current context and
/// leave AL's error state to the caller. A `source` is the name of an AL source.

void setListenerPlace(const Vec3f& position, const Quaternion& rotation);
/// A sound that is not spatial is at the listener and heard from all directions.
void setPlace(unsigned source, bool spatial, const Vec3f& position);
/// A sound that is not spatial is not attenuated.
void setReach(unsigned source, bool spatial, const Hull& hull);
/// In units of the scene, 0 for a point, as at first. Without effect if this OpenAL library knows
/// points only.
void setRadius(unsigned source, float radius);
void setPlayback(unsigned source, float pitch, bool loop);

/// An AL error code for people.
std::string errorText(int error);

} // namespace Orvel::detail
