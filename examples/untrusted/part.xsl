<?xml version="1.0" encoding="UTF-8"?>
<!-- What curious.xsl would like to take in. -->
<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:template match="/note">
    <secret/>
  </xsl:template>
</xsl:stylesheet>
