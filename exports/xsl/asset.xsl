<?xml version="1.0"?>
<!-- One installed-program asset's differences: folders as collapsible trees, files with time,
     size and CRC-32. -->
<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:import href="common.xsl"/>
  <xsl:template match="/ASSETXML">
    <xsl:call-template name="page">
      <xsl:with-param name="title">Asset differences</xsl:with-param>
      <xsl:with-param name="body"><xsl:apply-templates select="ASSETTREE"/></xsl:with-param>
    </xsl:call-template>
  </xsl:template>
  <xsl:template match="ASSETTREE">
    <details open="open">
      <summary class="flag-{CHGFLAG/@flag}"><xsl:value-of select="NNAME"/></summary>
      <xsl:apply-templates select="ASSETTREE"/>
      <xsl:for-each select="ASSETVAL">
        <div class="entry flag-{CHGFLAG/@flag}">
          <xsl:value-of select="FNAME"/>  <xsl:value-of select="TIME"/>, <xsl:value-of select="SIZE"/> bytes, CRC <xsl:value-of select="CRC"/>
        </div>
      </xsl:for-each>
    </details>
  </xsl:template>
</xsl:stylesheet>
