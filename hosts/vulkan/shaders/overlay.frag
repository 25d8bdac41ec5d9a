#version 450
// The toolkit's frame is as large as the render area: each fragment takes its own texel, so the
// pixels arrive as drawn (premultiplied) with no filtering.
layout(set = 0, binding = 0) uniform sampler2D frame;
layout(location = 0) out vec4 colour;
void main() {
  colour = texelFetch(frame, ivec2(gl_FragCoord.xy), 0);
}
