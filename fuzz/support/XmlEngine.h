#pragma once

namespace oxil::fuzz {

/**
 * Has libxml2 and libxslt say nothing (but make all that they would), and lets no document and no
 * stylesheet get at a file: one that tries ends the process.
 */
void isolateXmlEngine();

}  // namespace oxil::fuzz
