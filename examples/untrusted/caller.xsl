<?xml version="1.0" encoding="UTF-8"?>
<!-- Fetches what it says from the network. -->
<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:template match="/note">
    <xsl:value-of select="document('http://localhost/secret.xml')"/>
  </xsl:template>
</xsl:stylesheet>
