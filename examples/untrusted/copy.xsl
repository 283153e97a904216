<?xml version="1.0" encoding="UTF-8"?>
<!-- Does what a stylesheet is for. -->
<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:template match="/note">
    <p><xsl:value-of select="."/></p>
  </xsl:template>
</xsl:stylesheet>
