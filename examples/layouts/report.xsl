<?xml version="1.0" encoding="UTF-8"?>
<!-- One line for each layout, and how many there are. -->
<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:output method="text" encoding="UTF-8"/>

  <xsl:template match="/report">
    <xsl:value-of select="concat('The layouts with the most variants, of ', count(layout), '&#10;')"/>
    <xsl:apply-templates select="layout"/>
  </xsl:template>

  <xsl:template match="layout">
    <xsl:value-of select="concat(@variants, ' ', @name, ' ', ., '&#10;')"/>
  </xsl:template>
</xsl:stylesheet>
