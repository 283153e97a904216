<?xml version="1.0" encoding="UTF-8"?>
<!-- Leaves a file behind. -->
<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:template match="/note">
    <xsl:document href="left-behind.xml">
      <secret/>
    </xsl:document>
  </xsl:template>
</xsl:stylesheet>
