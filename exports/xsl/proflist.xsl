<?xml version="1.0"?>
<!-- The profile list as a table. -->
<xsl:stylesheet version="1.0" xmlns:xsl="http://www.w3.org/1999/XSL/Transform">
  <xsl:import href="common.xsl"/>
  <xsl:template match="/PROFILELIST">
    <xsl:call-template name="page">
      <xsl:with-param name="title">Profiles</xsl:with-param>
      <xsl:with-param name="body">
        <table>
          <tr><th>File</th><th>Description</th></tr>
          <xsl:for-each select="PROFILES">
            <tr><td><xsl:value-of select="FILE"/></td><td><xsl:value-of select="DESCRIPTION"/></td></tr>
          </xsl:for-each>
        </table>
      </xsl:with-param>
    </xsl:call-template>
  </xsl:template>
</xsl:stylesheet>
